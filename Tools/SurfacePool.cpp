#include "Tools/SurfacePool.h"

#include "Platform/Support/Fatal.h"

#include <array>

namespace pavo::tools {
namespace {

// Enough for those under way, those that the camera shows and the one that is drawn.
constexpr std::int32_t kRingSize = 8;

OSType pixelFormatOf(Packing packing)
{
    switch (packing) {
    case Packing::uyvy:
        return kCVPixelFormatType_422YpCbCr8;
    case Packing::yuy2:
        return kCVPixelFormatType_422YpCbCr8_yuvs;
    case Packing::nv12:
        return kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
    case Packing::i420:
        return kCVPixelFormatType_420YpCbCr8Planar;
    case Packing::bgra:
        return kCVPixelFormatType_32BGRA;
    }
    fatalError("unknown packing");
}

cf::Ref<CFNumberRef> number(std::int64_t value)
{
    return cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
}

template <std::size_t Count>
cf::Ref<CFDictionaryRef> dictionary(std::array<const void*, Count> keys,
                                    std::array<const void*, Count> values)
{
    return cf::adopt(CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), Count,
                                        &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

}  // namespace

std::optional<SurfacePool> SurfacePool::create(const VideoFormat& format)
{
    const auto width = number(format.width), height = number(format.height);
    const auto pixelFormat = number(pixelFormatOf(format.packing));
    const auto onSurfaces = dictionary<0>({}, {});
    const auto bufferAttributes =
        dictionary<4>({kCVPixelBufferPixelFormatTypeKey, kCVPixelBufferWidthKey, kCVPixelBufferHeightKey,
                       kCVPixelBufferIOSurfacePropertiesKey},
                      {pixelFormat.get(), width.get(), height.get(), onSurfaces.get()});
    // All of the ring stays: a new surface costs more than a frame may.
    const auto count = number(kRingSize);
    const auto poolAttributes = dictionary<1>({kCVPixelBufferPoolMinimumBufferCountKey}, {count.get()});
    cf::Ref<CVPixelBufferPoolRef> pool;
    const CVReturn status = CVPixelBufferPoolCreate(kCFAllocatorDefault, poolAttributes.get(),
                                                    bufferAttributes.get(), pool.receive());
    if (status != kCVReturnSuccess || !pool) return std::nullopt;
    return SurfacePool(std::move(pool));
}

cf::Ref<CVPixelBufferRef> SurfacePool::take()
{
    static const auto threshold = [] {
        const auto count = number(kRingSize);
        return dictionary<1>({kCVPixelBufferPoolAllocationThresholdKey}, {count.get()});
    }();
    cf::Ref<CVPixelBufferRef> buffer;
    CVPixelBufferPoolCreatePixelBufferWithAuxAttributes(kCFAllocatorDefault, pool_.get(), threshold.get(),
                                                        buffer.receive());
    return buffer;
}

LockedPixels::LockedPixels(CVPixelBufferRef buffer, const VideoFormat& format)
    : buffer_(buffer),
      view_{format, {}}
{
    CVPixelBufferLockBaseAddress(buffer_, 0);
    const bool isPlanar = CVPixelBufferIsPlanar(buffer_);
    const std::size_t planes = isPlanar ? CVPixelBufferGetPlaneCount(buffer_) : 1;
    require(planes == planesOf(format).size(), "a pixel buffer has other planes than its format");
    for (std::size_t i = 0; i < planes; ++i) {
        void* address =
            isPlanar ? CVPixelBufferGetBaseAddressOfPlane(buffer_, i) : CVPixelBufferGetBaseAddress(buffer_);
        view_.planes[i] = {static_cast<std::uint8_t*>(address),
                           isPlanar ? CVPixelBufferGetBytesPerRowOfPlane(buffer_, i)
                                    : CVPixelBufferGetBytesPerRow(buffer_)};
    }
}

LockedPixels::~LockedPixels()
{
    CVPixelBufferUnlockBaseAddress(buffer_, 0);
}

}  // namespace pavo::tools
