#pragma once

#include <stdint.h>

// 0, or why a function did not do it.
typedef int32_t CVReturn;
enum {
    kCVReturnSuccess = 0,
    kCVReturnError = -6660,
    kCVReturnInvalidArgument = -6661,
    kCVReturnAllocationFailed = -6662,
    kCVReturnInvalidPixelFormat = -6680,
    kCVReturnInvalidSize = -6681,
    kCVReturnInvalidPixelBufferAttributes = -6682,
    kCVReturnWouldExceedAllocationThreshold = -6689,
    kCVReturnInvalidPoolAttributes = -6691,
};
