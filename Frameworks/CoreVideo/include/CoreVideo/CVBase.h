#pragma once

#include <CoreFoundation/CoreFoundation.h>

typedef uint64_t CVOptionFlags;
