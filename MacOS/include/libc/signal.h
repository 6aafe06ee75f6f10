#pragma once

// Included by the C++ library; nothing of it is used.
