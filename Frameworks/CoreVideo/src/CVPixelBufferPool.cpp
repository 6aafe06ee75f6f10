#include "PixelBufferRecycler.h"

#include <CoreFoundation/CFObject.h>
#include <CoreVideo/CoreVideo.h>

#include <memory>
#include <optional>
#include <utility>

struct __CVPixelBufferPool : cf::runtime::Object {
    __CVPixelBufferPool(std::shared_ptr<corevideo::PixelBufferRecycler> buffers,
                        CFDictionaryRef ownAttributes, CFDictionaryRef bufferAttributes)
        : Object(classInfo()),
          recycler(std::move(buffers)),
          attributes(copyOf(ownAttributes)),
          pixelBufferAttributes(copyOf(bufferAttributes))
    {}
    ~__CVPixelBufferPool() { recycler->close(); }
    static const cf::runtime::Class& classInfo();

    static cf::Ref<CFDictionaryRef> copyOf(CFDictionaryRef dictionary)
    {
        return cf::adopt(dictionary ? CFDictionaryCreateCopy(kCFAllocatorDefault, dictionary) : nullptr);
    }

    const std::shared_ptr<corevideo::PixelBufferRecycler> recycler;
    const cf::Ref<CFDictionaryRef> attributes;
    const cf::Ref<CFDictionaryRef> pixelBufferAttributes;
};

const cf::runtime::Class& __CVPixelBufferPool::classInfo()
{
    static constinit const cf::runtime::Class info{"CVPixelBufferPool",
                                                   cf::runtime::destroy<__CVPixelBufferPool>};
    return info;
}

CFTypeID CVPixelBufferPoolGetTypeID(void)
{
    return cf::runtime::typeID<__CVPixelBufferPool>();
}

CVPixelBufferPoolRef CVPixelBufferPoolRetain(CVPixelBufferPoolRef pixelBufferPool)
{
    if (pixelBufferPool) CFRetain(pixelBufferPool);
    return pixelBufferPool;
}

void CVPixelBufferPoolRelease(CVPixelBufferPoolRef pixelBufferPool)
{
    if (pixelBufferPool) CFRelease(pixelBufferPool);
}

CVReturn CVPixelBufferPoolCreate(CFAllocatorRef, CFDictionaryRef poolAttributes,
                                 CFDictionaryRef pixelBufferAttributes, CVPixelBufferPoolRef* poolOut)
{
    if (!poolOut) return kCVReturnInvalidArgument;
    *poolOut = nullptr;
    corevideo::PoolAttributes ownAttributes;
    if (!corevideo::readPoolAttributes(poolAttributes, ownAttributes)) return kCVReturnInvalidPoolAttributes;
    corevideo::BufferAttributes attributes;
    if (!corevideo::readBufferAttributes(pixelBufferAttributes, attributes) || !attributes.format ||
        attributes.width.value_or(0) <= 0 || attributes.height.value_or(0) <= 0)
        return kCVReturnInvalidPixelBufferAttributes;
    corevideo::StorageRequest request{};
    if (const auto status =
            corevideo::makeRequest(*attributes.format, static_cast<std::size_t>(*attributes.width),
                                   static_cast<std::size_t>(*attributes.height), attributes, request))
        return status;
    auto recycler =
        std::make_shared<corevideo::PixelBufferRecycler>(request, std::move(attributes), ownAttributes);
    *poolOut =
        cf::runtime::create<__CVPixelBufferPool>(std::move(recycler), poolAttributes, pixelBufferAttributes);
    return *poolOut ? kCVReturnSuccess : kCVReturnAllocationFailed;
}

CFDictionaryRef CVPixelBufferPoolGetAttributes(CVPixelBufferPoolRef pool)
{
    return pool->attributes.get();
}

CFDictionaryRef CVPixelBufferPoolGetPixelBufferAttributes(CVPixelBufferPoolRef pool)
{
    return pool->pixelBufferAttributes.get();
}

CVReturn CVPixelBufferPoolCreatePixelBuffer(CFAllocatorRef allocator, CVPixelBufferPoolRef pixelBufferPool,
                                            CVPixelBufferRef* pixelBufferOut)
{
    return CVPixelBufferPoolCreatePixelBufferWithAuxAttributes(allocator, pixelBufferPool, nullptr,
                                                               pixelBufferOut);
}

CVReturn CVPixelBufferPoolCreatePixelBufferWithAuxAttributes(CFAllocatorRef,
                                                             CVPixelBufferPoolRef pixelBufferPool,
                                                             CFDictionaryRef auxAttributes,
                                                             CVPixelBufferRef* pixelBufferOut)
{
    if (!pixelBufferOut) return kCVReturnInvalidArgument;
    *pixelBufferOut = nullptr;
    if (!pixelBufferPool) return kCVReturnInvalidArgument;
    std::optional<std::size_t> threshold;
    if (!corevideo::readAllocationThreshold(auxAttributes, threshold)) return kCVReturnInvalidPoolAttributes;
    return pixelBufferPool->recycler->take(threshold, pixelBufferOut);
}

void CVPixelBufferPoolFlush(CVPixelBufferPoolRef pool, CVPixelBufferPoolFlushFlags options)
{
    pool->recycler->flush(options & kCVPixelBufferPoolFlushExcessBuffers);
}
