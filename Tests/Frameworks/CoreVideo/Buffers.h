#pragma once

#include <CoreVideo/CoreVideo.h>

#include <cstddef>

#include "Platform/Support/Ref.h"
#include "Tests/Frameworks/Properties.h"

namespace pavo::test {

inline cf::Ref<CVPixelBufferRef> makeBuffer(std::size_t width, std::size_t height, OSType format,
                                            CFDictionaryRef attributes = nullptr)
{
    cf::Ref<CVPixelBufferRef> buffer;
    CVPixelBufferCreate(kCFAllocatorDefault, width, height, format, attributes, buffer.receive());
    return buffer;
}

// Attributes of a buffer whose pixels lie in a surface.
inline cf::Ref<CFMutableDictionaryRef> surfaceBacked()
{
    return makeDictionary({{kCVPixelBufferIOSurfacePropertiesKey, makeDictionary({}).get()}});
}

inline cf::Ref<CVPixelBufferRef> wrap(IOSurfaceRef surface)
{
    cf::Ref<CVPixelBufferRef> buffer;
    CVPixelBufferCreateWithIOSurface(kCFAllocatorDefault, surface, nullptr, buffer.receive());
    return buffer;
}

}  // namespace pavo::test
