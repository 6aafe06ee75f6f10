#include "PixelStorage.h"

#include <cstdint>
#include <utility>

namespace corevideo {

namespace {

constexpr std::size_t kMemoryAlignment = 64;  // a cache line, and the widest vector

constexpr std::size_t roundedUp(std::size_t value, std::size_t multiple)
{
    return (value + multiple - 1) / multiple * multiple;
}

// A dictionary of properties under construction.
class Properties {
public:
    Properties()
        : dictionary_(cf::adopt(CFDictionaryCreateMutable(
              kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks)))
    {}

    void set(CFStringRef key, std::size_t value)
    {
        const auto wide = static_cast<std::int64_t>(value);
        const auto number = cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &wide));
        set(key, number.get());
    }
    void set(CFStringRef key, CFTypeRef value) { CFDictionarySetValue(dictionary_.get(), key, value); }
    CFDictionaryRef get() const { return dictionary_.get(); }

private:
    cf::Ref<CFMutableDictionaryRef> dictionary_;
};

// The planes of the format as the surface's plane information.
cf::Ref<CFArrayRef> planeInfo(const PixelStorage& storage)
{
    std::array<Properties, kMaxPlanes> planes;
    std::array<const void*, kMaxPlanes> values{};
    const auto count = storage.format->planeCount;
    for (std::size_t i = 0; i < count; ++i) {
        const auto& part = storage.parts[i];
        planes[i].set(kIOSurfacePlaneWidth, part.width);
        planes[i].set(kIOSurfacePlaneHeight, part.height);
        planes[i].set(kIOSurfacePlaneBytesPerElement, storage.format->bytesPerPixelOf(i));
        planes[i].set(kIOSurfacePlaneBytesPerRow, part.bytesPerRow);
        values[i] = planes[i].get();
    }
    return cf::adopt(CFArrayCreate(kCFAllocatorDefault, values.data(), static_cast<CFIndex>(count),
                                   &kCFTypeArrayCallBacks));
}

cf::Ref<IOSurfaceRef> createSurface(const PixelStorage& storage)
{
    Properties properties;
    properties.set(kIOSurfaceWidth, storage.width);
    properties.set(kIOSurfaceHeight, storage.height);
    properties.set(kIOSurfacePixelFormat, std::size_t{storage.format->code});
    if (storage.isPlanar()) {
        properties.set(kIOSurfacePlaneInfo, planeInfo(storage).get());
    } else {
        properties.set(kIOSurfaceBytesPerElement, storage.format->bytesPerPixelOf(0));
        properties.set(kIOSurfaceBytesPerRow, storage.parts[0].bytesPerRow);
    }
    return cf::adopt(IOSurfaceCreate(properties.get()));
}

// Planes follow each other in the order of the format, without gaps.
void placeParts(PixelStorage& storage, std::byte* address)
{
    for (std::size_t i = 0; i < storage.format->partCount(); ++i) {
        storage.parts[i].address = address;
        address += storage.parts[i].bytesPerRow * storage.parts[i].height;
    }
}

bool allocate(PixelStorage& storage)
{
    // Zeroed by the system and not by us: memory that nobody writes to is not there, so a pool of many large
    // buffers costs no more than those that are used.
    storage.memory.reset(std::calloc(1, storage.dataSize() + kMemoryAlignment));
    if (!storage.memory) return false;
    const auto start = reinterpret_cast<std::uintptr_t>(storage.memory.get());
    placeParts(storage,
               static_cast<std::byte*>(storage.memory.get()) + (roundedUp(start, kMemoryAlignment) - start));
    return true;
}

bool isSurfacePartSound(IOSurfaceRef surface, const PixelFormat& format, std::size_t part)
{
    const auto stride =
        format.planeCount ? IOSurfaceGetBytesPerRowOfPlane(surface, part) : IOSurfaceGetBytesPerRow(surface);
    return stride >= format.bytesPerRowOf(part, IOSurfaceGetWidth(surface));
}

}  // namespace

std::optional<PixelStorage> PixelStorage::create(const StorageRequest& request)
{
    PixelStorage storage;
    storage.format = request.format;
    storage.width = request.width;
    storage.height = request.height;
    for (std::size_t i = 0; i < request.format->partCount(); ++i) {
        auto& part = storage.parts[i];
        part.width = request.format->widthOf(i, request.width);
        part.height = request.format->heightOf(i, request.height);
        part.bytesPerRow =
            roundedUp(request.format->bytesPerRowOf(i, request.width), request.bytesPerRowAlignment);
    }
    if (!request.isSurfaceBacked) return allocate(storage) ? std::optional(std::move(storage)) : std::nullopt;
    storage.surface = createSurface(storage);
    if (!storage.surface) return {};
    placeParts(storage, static_cast<std::byte*>(IOSurfaceGetBaseAddress(storage.surface.get())));
    return storage;
}

CVReturn PixelStorage::wrap(IOSurfaceRef surface, std::optional<PixelStorage>& storage)
{
    const auto* format = findPixelFormat(IOSurfaceGetPixelFormat(surface));
    if (!format) return kCVReturnInvalidPixelFormat;
    if (IOSurfaceGetPlaneCount(surface) != format->planeCount) return kCVReturnInvalidPixelBufferAttributes;

    PixelStorage result;
    result.format = format;
    result.width = IOSurfaceGetWidth(surface);
    result.height = IOSurfaceGetHeight(surface);
    for (std::size_t i = 0; i < format->partCount(); ++i) {
        auto& part = result.parts[i];
        part.width = format->widthOf(i, result.width);
        part.height = format->heightOf(i, result.height);
        if (format->planeCount && (IOSurfaceGetWidthOfPlane(surface, i) != part.width ||
                                   IOSurfaceGetHeightOfPlane(surface, i) != part.height))
            return kCVReturnInvalidSize;
        if (!isSurfacePartSound(surface, *format, i)) return kCVReturnInvalidPixelBufferAttributes;
        part.bytesPerRow = format->planeCount ? IOSurfaceGetBytesPerRowOfPlane(surface, i)
                                              : IOSurfaceGetBytesPerRow(surface);
        part.address = static_cast<std::byte*>(format->planeCount ? IOSurfaceGetBaseAddressOfPlane(surface, i)
                                                                  : IOSurfaceGetBaseAddress(surface));
    }
    result.surface = cf::retain(surface);
    storage = std::move(result);
    return kCVReturnSuccess;
}

const StoragePart* PixelStorage::plane(std::size_t index) const
{
    return index < format->planeCount ? &parts[index] : nullptr;
}

std::size_t PixelStorage::dataSize() const
{
    std::size_t size = 0;
    for (std::size_t i = 0; i < format->partCount(); ++i)
        size += parts[i].bytesPerRow * parts[i].height;
    return size;
}

}  // namespace corevideo
