#include "Producer/SurfaceRing.h"

#include <CoreVideo/CoreVideo.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace pavo::producer {
namespace {

OSType pixelFormatOf(pavo_pixel_format format)
{
    switch (format) {
    case PAVO_UYVY:
        return kCVPixelFormatType_422YpCbCr8;
    case PAVO_YUY2:
        return kCVPixelFormatType_422YpCbCr8_yuvs;
    case PAVO_NV12:
        return kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
    case PAVO_I420:
        return kCVPixelFormatType_420YpCbCr8Planar;
    case PAVO_BGRA:
        break;
    }
    return kCVPixelFormatType_32BGRA;
}

// The surface of a pixel buffer, whose layout is then what the camera expects of that format.
cf::Ref<IOSurfaceRef> makeSurface(const SurfaceRing::Format& format)
{
    const auto onSurface =
        cf::adopt(CFDictionaryCreate(kCFAllocatorDefault, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks));
    const void* key = kCVPixelBufferIOSurfacePropertiesKey;
    const void* value = onSurface.get();
    const auto attributes =
        cf::adopt(CFDictionaryCreate(kCFAllocatorDefault, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks));
    cf::Ref<CVPixelBufferRef> buffer;
    CVPixelBufferCreate(kCFAllocatorDefault, format.width, format.height, pixelFormatOf(format.format),
                        attributes.get(), buffer.receive());
    return buffer ? cf::retain(CVPixelBufferGetIOSurface(buffer.get())) : cf::Ref<IOSurfaceRef>();
}

struct ElementLayout {
    std::uint32_t bytes;
    std::uint32_t pixelsAcross;  // that share an element
    std::uint32_t pixelsDown;
};

// Of a plane. 4:2:2 shares chroma between two elements, which is why its rows hold an even number of them.
ElementLayout elementOf(pavo_pixel_format format, std::size_t plane)
{
    switch (format) {
    case PAVO_UYVY:
    case PAVO_YUY2:
        return {2, 1, 1};
    case PAVO_NV12:
        return plane == 0 ? ElementLayout{1, 1, 1} : ElementLayout{2, 2, 2};
    case PAVO_I420:
        return plane == 0 ? ElementLayout{1, 1, 1} : ElementLayout{1, 2, 2};
    case PAVO_BGRA:
        break;
    }
    return {4, 1, 1};
}

bool isPacked422(pavo_pixel_format format)
{
    return format == PAVO_UYVY || format == PAVO_YUY2;
}

}  // namespace

std::optional<SurfaceRing> SurfaceRing::create(const Format& format, std::size_t count)
{
    std::vector<Slot> slots(count);
    for (auto& slot : slots) {
        slot.surface = makeSurface(format);
        if (!slot.surface) return std::nullopt;
    }
    return SurfaceRing(format, std::move(slots));
}

bool SurfaceRing::isFree(const Slot& slot) const
{
    const bool isUnderWay = slot.sentAs != 0 && slot.sentAs + kFramesUnderWay > sentCount_;
    return slot.state == State::free && !isUnderWay && !IOSurfaceIsInUse(slot.surface.get());
}

std::optional<pavo_frame> SurfaceRing::take()
{
    Slot* oldest = nullptr;
    for (auto& slot : slots_)
        if ((!oldest || slot.sentAs < oldest->sentAs) && isFree(slot)) oldest = &slot;
    if (!oldest) return std::nullopt;
    oldest->state = State::drawn;
    oldest->frameId = ++lastFrameId_;
    IOSurfaceLock(oldest->surface.get(), 0, nullptr);
    return describe(*oldest);
}

std::optional<std::size_t> SurfaceRing::find(std::uint64_t frameId) const
{
    const auto found = std::find_if(slots_.begin(), slots_.end(), [frameId](const Slot& slot) {
        return slot.state == State::drawn && slot.frameId == frameId;
    });
    if (found == slots_.end()) return std::nullopt;
    return static_cast<std::size_t>(std::distance(slots_.begin(), found));
}

void SurfaceRing::endDrawing(std::size_t place)
{
    IOSurfaceUnlock(slots_[place].surface.get(), 0, nullptr);
    slots_[place].state = State::waiting;
}

void SurfaceRing::endSending(std::size_t place, bool wasSent)
{
    slots_[place].state = State::free;
    if (wasSent) slots_[place].sentAs = ++sentCount_;
}

void SurfaceRing::discard(std::size_t place)
{
    IOSurfaceUnlock(slots_[place].surface.get(), 0, nullptr);
    slots_[place].state = State::free;
}

void SurfaceRing::forgetCamera()
{
    for (auto& slot : slots_) {
        slot.sentAs = 0;
        if (slot.state != State::free || !IOSurfaceIsInUse(slot.surface.get())) continue;
        if (auto replacement = makeSurface(format_)) slot.surface = std::move(replacement);
    }
}

pavo_frame SurfaceRing::describe(const Slot& slot) const
{
    const IOSurfaceRef surface = slot.surface.get();
    const std::size_t planeCount = IOSurfaceGetPlaneCount(surface);
    pavo_frame frame{};
    frame.id = slot.frameId;
    frame.format = format_.format;
    frame.width = format_.width;
    frame.height = format_.height;
    frame.plane_count = static_cast<std::uint32_t>(std::max<std::size_t>(planeCount, 1));
    for (std::size_t i = 0; i < frame.plane_count; ++i) {
        const auto element = elementOf(format_.format, i);
        auto& plane = frame.planes[i];
        const void* data =
            planeCount ? IOSurfaceGetBaseAddressOfPlane(surface, i) : IOSurfaceGetBaseAddress(surface);
        plane.data = static_cast<std::uint8_t*>(const_cast<void*>(data));
        plane.stride =
            planeCount ? IOSurfaceGetBytesPerRowOfPlane(surface, i) : IOSurfaceGetBytesPerRow(surface);
        plane.width = (format_.width + element.pixelsAcross - 1) / element.pixelsAcross;
        if (isPacked422(format_.format)) plane.width += plane.width % 2;
        plane.height = (format_.height + element.pixelsDown - 1) / element.pixelsDown;
        plane.bytes_per_element = element.bytes;
    }
    return frame;
}

}  // namespace pavo::producer
