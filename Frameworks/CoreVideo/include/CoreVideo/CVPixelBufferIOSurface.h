#pragma once

#include <CoreVideo/CVPixelBuffer.h>
#include <IOSurface/IOSurfaceRef.h>

CF_EXTERN_C_BEGIN

// Null for a buffer in plain memory. The buffer goes on owning the surface.
IOSurfaceRef CVPixelBufferGetIOSurface(CVPixelBufferRef pixelBuffer);

// Wraps the surface without copying. The buffer keeps it, and keeps it in use. A surface of an unknown
// format, or whose rows or planes are not those of its format, is refused, and null is written.
CVReturn CVPixelBufferCreateWithIOSurface(CFAllocatorRef allocator, IOSurfaceRef surface,
                                          CFDictionaryRef pixelBufferAttributes,
                                          CVPixelBufferRef* pixelBufferOut);

CF_EXTERN_C_END
