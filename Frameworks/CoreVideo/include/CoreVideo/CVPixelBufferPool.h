#pragma once

#include <CoreVideo/CVPixelBuffer.h>

CF_EXTERN_C_BEGIN

// Makes pixel buffers that are all alike, and makes them again from those that nobody holds any more. Buffers
// may outlive their pool. A surface that another process has in use is not handed out again; one that stays
// in use longer than the maximum age is left to that process. Any thread may call these.
typedef struct __CVPixelBufferPool* CVPixelBufferPoolRef;

// Attributes of a pool.
CF_EXPORT const CFStringRef
    kCVPixelBufferPoolMinimumBufferCountKey;                        // free buffers that do not age; default 0
CF_EXPORT const CFStringRef kCVPixelBufferPoolMaximumBufferAgeKey;  // seconds; default 1, 0: none ages
// Attribute of a request: a buffer is not added to a pool that has this many. Default: no limit.
CF_EXPORT const CFStringRef kCVPixelBufferPoolAllocationThresholdKey;

typedef CVOptionFlags CVPixelBufferPoolFlushFlags;
enum {
    kCVPixelBufferPoolFlushExcessBuffers = 1,  // all free buffers, however young
};

CFTypeID CVPixelBufferPoolGetTypeID(void);

// Null is allowed.
CVPixelBufferPoolRef CVPixelBufferPoolRetain(CVPixelBufferPoolRef pixelBufferPool);
void CVPixelBufferPoolRelease(CVPixelBufferPoolRef pixelBufferPool);

// The pixel buffer attributes need format, width and height. Nothing is allocated yet. A failure writes null.
CVReturn CVPixelBufferPoolCreate(CFAllocatorRef allocator, CFDictionaryRef poolAttributes,
                                 CFDictionaryRef pixelBufferAttributes, CVPixelBufferPoolRef* poolOut);

// The attributes that the pool was made with; the pool goes on owning them.
CFDictionaryRef CVPixelBufferPoolGetAttributes(CVPixelBufferPoolRef pool);
CFDictionaryRef CVPixelBufferPoolGetPixelBufferAttributes(CVPixelBufferPoolRef pool);

// A buffer with the attachments that the attributes ask for, and no others. Its content is that of its last
// user, or zero. A failure writes null.
CVReturn CVPixelBufferPoolCreatePixelBuffer(CFAllocatorRef allocator, CVPixelBufferPoolRef pixelBufferPool,
                                            CVPixelBufferRef* pixelBufferOut);
CVReturn CVPixelBufferPoolCreatePixelBufferWithAuxAttributes(CFAllocatorRef allocator,
                                                             CVPixelBufferPoolRef pixelBufferPool,
                                                             CFDictionaryRef auxAttributes,
                                                             CVPixelBufferRef* pixelBufferOut);

// Frees the free buffers that have passed their age.
void CVPixelBufferPoolFlush(CVPixelBufferPoolRef pool, CVPixelBufferPoolFlushFlags options);

CF_EXTERN_C_END
