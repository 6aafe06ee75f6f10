#include "CVAttributes.h"
#include "CVBufferObject.h"

#include <CoreVideo/CoreVideo.h>

#include <optional>
#include <utility>

namespace {

// A buffer around the storage, held by the caller.
CVReturn makeBuffer(corevideo::PixelStorage storage, const corevideo::BufferAttributes& attributes,
                    CVPixelBufferRef* pixelBufferOut)
{
    const CVPixelBufferRef buffer = cf::runtime::create<__CVBuffer>(std::move(storage));
    if (!buffer) return kCVReturnAllocationFailed;
    buffer->beginUse(nullptr);
    buffer->setAttachments(attributes.propagatedAttachments.get(), kCVAttachmentMode_ShouldPropagate);
    buffer->setAttachments(attributes.nonPropagatedAttachments.get(), kCVAttachmentMode_ShouldNotPropagate);
    *pixelBufferOut = buffer;
    return kCVReturnSuccess;
}

std::atomic<std::uint32_t>& lockCount(CVPixelBufferRef buffer, CVPixelBufferLockFlags flags)
{
    return flags == kCVPixelBufferLock_ReadOnly ? buffer->readLocks : buffer->writeLocks;
}

IOSurfaceLockOptions surfaceOptions(CVPixelBufferLockFlags flags)
{
    return flags == kCVPixelBufferLock_ReadOnly ? kIOSurfaceLockReadOnly : 0;
}

bool areKnown(CVPixelBufferLockFlags flags)
{
    return (flags & ~CVPixelBufferLockFlags{kCVPixelBufferLock_ReadOnly}) == 0;
}

}  // namespace

CFTypeID CVPixelBufferGetTypeID(void)
{
    return cf::runtime::typeID<__CVBuffer>();
}

CVPixelBufferRef CVPixelBufferRetain(CVPixelBufferRef texture)
{
    return CVBufferRetain(texture);
}

void CVPixelBufferRelease(CVPixelBufferRef texture)
{
    CVBufferRelease(texture);
}

CVReturn CVPixelBufferCreate(CFAllocatorRef, size_t width, size_t height, OSType pixelFormatType,
                             CFDictionaryRef pixelBufferAttributes, CVPixelBufferRef* pixelBufferOut)
{
    if (!pixelBufferOut) return kCVReturnInvalidArgument;
    *pixelBufferOut = nullptr;
    corevideo::BufferAttributes attributes;
    if (!corevideo::readBufferAttributes(pixelBufferAttributes, attributes))
        return kCVReturnInvalidPixelBufferAttributes;
    corevideo::StorageRequest request{};
    if (const auto status = corevideo::makeRequest(pixelFormatType, width, height, attributes, request))
        return status;
    auto storage = corevideo::PixelStorage::create(request);
    if (!storage) return kCVReturnAllocationFailed;
    return makeBuffer(std::move(*storage), attributes, pixelBufferOut);
}

CVReturn CVPixelBufferCreateWithIOSurface(CFAllocatorRef, IOSurfaceRef surface,
                                          CFDictionaryRef pixelBufferAttributes,
                                          CVPixelBufferRef* pixelBufferOut)
{
    if (!pixelBufferOut) return kCVReturnInvalidArgument;
    *pixelBufferOut = nullptr;
    if (!surface) return kCVReturnInvalidArgument;
    corevideo::BufferAttributes attributes;
    if (!corevideo::readBufferAttributes(pixelBufferAttributes, attributes))
        return kCVReturnInvalidPixelBufferAttributes;
    std::optional<corevideo::PixelStorage> storage;
    if (const auto status = corevideo::PixelStorage::wrap(surface, storage)) return status;
    return makeBuffer(std::move(*storage), attributes, pixelBufferOut);
}

IOSurfaceRef CVPixelBufferGetIOSurface(CVPixelBufferRef pixelBuffer)
{
    return pixelBuffer ? pixelBuffer->storage.surface.get() : nullptr;
}

CVReturn CVPixelBufferLockBaseAddress(CVPixelBufferRef pixelBuffer, CVPixelBufferLockFlags lockFlags)
{
    if (!pixelBuffer || !areKnown(lockFlags)) return kCVReturnInvalidArgument;
    if (const auto surface = CVPixelBufferGetIOSurface(pixelBuffer))
        IOSurfaceLock(surface, surfaceOptions(lockFlags), nullptr);
    lockCount(pixelBuffer, lockFlags).fetch_add(1);
    return kCVReturnSuccess;
}

CVReturn CVPixelBufferUnlockBaseAddress(CVPixelBufferRef pixelBuffer, CVPixelBufferLockFlags unlockFlags)
{
    if (!pixelBuffer || !areKnown(unlockFlags)) return kCVReturnInvalidArgument;
    auto& locks = lockCount(pixelBuffer, unlockFlags);
    auto held = locks.load();
    do
        if (held == 0) return kCVReturnInvalidArgument;
    while (!locks.compare_exchange_weak(held, held - 1));
    if (const auto surface = CVPixelBufferGetIOSurface(pixelBuffer))
        IOSurfaceUnlock(surface, surfaceOptions(unlockFlags), nullptr);
    return kCVReturnSuccess;
}

size_t CVPixelBufferGetWidth(CVPixelBufferRef pixelBuffer)
{
    return pixelBuffer->storage.width;
}

size_t CVPixelBufferGetHeight(CVPixelBufferRef pixelBuffer)
{
    return pixelBuffer->storage.height;
}

OSType CVPixelBufferGetPixelFormatType(CVPixelBufferRef pixelBuffer)
{
    return pixelBuffer->storage.format->code;
}

void* CVPixelBufferGetBaseAddress(CVPixelBufferRef pixelBuffer)
{
    return pixelBuffer->storage.parts[0].address;
}

size_t CVPixelBufferGetBytesPerRow(CVPixelBufferRef pixelBuffer)
{
    return pixelBuffer->storage.parts[0].bytesPerRow;
}

size_t CVPixelBufferGetDataSize(CVPixelBufferRef pixelBuffer)
{
    return pixelBuffer->storage.dataSize();
}

Boolean CVPixelBufferIsPlanar(CVPixelBufferRef pixelBuffer)
{
    return pixelBuffer->storage.isPlanar();
}

size_t CVPixelBufferGetPlaneCount(CVPixelBufferRef pixelBuffer)
{
    return pixelBuffer->storage.format->planeCount;
}

size_t CVPixelBufferGetWidthOfPlane(CVPixelBufferRef pixelBuffer, size_t planeIndex)
{
    const auto* plane = pixelBuffer->storage.plane(planeIndex);
    return plane ? plane->width : 0;
}

size_t CVPixelBufferGetHeightOfPlane(CVPixelBufferRef pixelBuffer, size_t planeIndex)
{
    const auto* plane = pixelBuffer->storage.plane(planeIndex);
    return plane ? plane->height : 0;
}

void* CVPixelBufferGetBaseAddressOfPlane(CVPixelBufferRef pixelBuffer, size_t planeIndex)
{
    const auto* plane = pixelBuffer->storage.plane(planeIndex);
    return plane ? plane->address : nullptr;
}

size_t CVPixelBufferGetBytesPerRowOfPlane(CVPixelBufferRef pixelBuffer, size_t planeIndex)
{
    const auto* plane = pixelBuffer->storage.plane(planeIndex);
    return plane ? plane->bytesPerRow : 0;
}
