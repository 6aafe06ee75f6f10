#pragma once

// Locales are switched off in the C++ library; its headers still ask for this one.
struct lconv;
