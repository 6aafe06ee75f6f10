#include "Platform/CoreMediaIO/linux/FrameConverter.h"

#include "Platform/CoreMediaIO/linux/ColorRows.h"

#include <libyuv.h>

#include <algorithm>

namespace cmio {

namespace {

// Black in video range.
constexpr int kBlackLuma = 16;
constexpr int kNoChroma = 128;

// Exchanges luma and chroma bytes of packed 4:2:2, four samples at a time.
constexpr std::uint8_t kSwapBytes[16] = {1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14};

bool isSameSize(const PictureReader& source, const VideoLayout& target)
{
    return source.width() == target.width && source.height() == target.height;
}

int roundedToEven(std::int64_t numerator, std::int64_t denominator)
{
    const std::int64_t rounded = (numerator + denominator / 2) / denominator;
    return static_cast<int>(std::max<std::int64_t>(rounded & ~std::int64_t{1}, 2));
}

std::uint8_t* chromaOfNv12(const VideoLayout& target, std::uint8_t* pixels)
{
    return pixels + target.lumaSize();
}

void drawBgra(const PictureReader::Plane& plane, const VideoLayout& target, std::uint8_t* pixels)
{
    if (target.format == VideoFormat::nv12) {
        libyuv::ARGBToNV12(plane.bytes, plane.stride, pixels, target.stride(), chromaOfNv12(target, pixels),
                           target.chromaWidth() * 2, target.width, target.height);
        return;
    }
    // Row by row: several without padding are one long row to libyuv, whose luma and chroma it keeps between
    // two steps. Those of one stay in the processor's cache.
    for (std::ptrdiff_t row = 0; row < target.height; ++row)
        libyuv::ARGBToYUY2(plane.bytes + row * plane.stride, plane.stride, pixels + row * target.stride(),
                           target.stride(), target.width, 1);
}

// What makes planes of a format that has one.
auto unpackerOf(OSType format)
{
    if (format == kCVPixelFormatType_32BGRA) return libyuv::ARGBToI422;
    return format == kCVPixelFormatType_422YpCbCr8 ? libyuv::UYVYToI422 : libyuv::YUY2ToI422;
}

}  // namespace

void FrameConverter::convert(const PictureReader& source, const VideoLayout& target, std::uint8_t* pixels)
{
    const bool isSame = isSameSize(source, target);
    if (isSame && convertDirectly(source, target, pixels)) return;
    const PlanarView picture = loadPlanar(source);
    store(isSame ? picture : fit(picture, target), target, pixels);
}

FrameConverter::Placement FrameConverter::place(int width, int height, const VideoLayout& target)
{
    Placement placement{0, 0, target.width, target.height};
    const std::int64_t scaledWidth = std::int64_t{width} * target.height;
    const std::int64_t scaledHeight = std::int64_t{height} * target.width;
    if (scaledWidth < scaledHeight)
        placement.width = std::min(roundedToEven(scaledWidth, height), target.width);
    else if (scaledHeight < scaledWidth)
        placement.height = std::min(roundedToEven(scaledHeight, width), target.height);
    placement.x = (target.width - placement.width) / 2 & ~1;
    placement.y = (target.height - placement.height) / 2 & ~1;
    return placement;
}

bool FrameConverter::convertDirectly(const PictureReader& source, const VideoLayout& target,
                                     std::uint8_t* pixels)
{
    const auto& [bytes, stride] = source.plane(0);
    const int width = target.width;
    const int height = target.height;
    if (source.format() == kCVPixelFormatType_32BGRA) {
        drawBgra(source.plane(0), target, pixels);
        return true;
    }
    const bool isUyvy = source.format() == kCVPixelFormatType_422YpCbCr8;
    if (isUyvy || source.format() == kCVPixelFormatType_422YpCbCr8_yuvs) {
        if (target.format == VideoFormat::nv12) {
            const auto convertToNv12 = isUyvy ? libyuv::UYVYToNV12 : libyuv::YUY2ToNV12;
            convertToNv12(bytes, stride, pixels, target.stride(), chromaOfNv12(target, pixels),
                          target.chromaWidth() * 2, width, height);
        } else if (isUyvy) {
            libyuv::ARGBShuffle(bytes, stride, pixels, target.stride(), kSwapBytes, target.chromaWidth(),
                                height);
        } else {
            libyuv::CopyPlane(bytes, stride, pixels, target.stride(), target.stride(), height);
        }
        return true;
    }
    if (source.format() == kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange &&
        target.format == VideoFormat::nv12) {
        const int chromaStride = target.chromaWidth() * 2;
        libyuv::CopyPlane(bytes, stride, pixels, target.stride(), width, height);
        libyuv::CopyPlane(source.plane(1).bytes, source.plane(1).stride, chromaOfNv12(target, pixels),
                          chromaStride, chromaStride, target.chromaHeight());
        return true;
    }
    return false;
}

PlanarView FrameConverter::loadPlanar(const PictureReader& source)
{
    const auto& [bytes, stride] = source.plane(0);
    switch (source.format()) {
    case kCVPixelFormatType_422YpCbCr8:
    case kCVPixelFormatType_422YpCbCr8_yuvs:
    case kCVPixelFormatType_32BGRA: {
        loaded_.resize(source.width(), source.height(), false);
        const PlanarView& view = loaded_.view();
        const auto unpack = unpackerOf(source.format());
        unpack(bytes, stride, loaded_.y(), view.strideY, loaded_.u(), view.strideU, loaded_.v(), view.strideV,
               view.width, view.height);
        return view;
    }
    case kCVPixelFormatType_420YpCbCr8Planar: {
        const auto& u = source.plane(1);
        const auto& v = source.plane(2);
        return {bytes, u.bytes, v.bytes, stride, u.stride, v.stride, source.width(), source.height(), true};
    }
    default:
        return loadBiPlanar(source);
    }
}

PlanarView FrameConverter::loadBiPlanar(const PictureReader& source)
{
    const auto& [bytes, stride] = source.plane(0);
    loaded_.resize(source.width(), source.height(), true);
    PlanarView view = loaded_.view();
    libyuv::SplitUVPlane(source.plane(1).bytes, source.plane(1).stride, loaded_.u(), view.strideU,
                         loaded_.v(), view.strideV, view.chromaWidth(), view.chromaHeight());
    if (source.format() == kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange) {
        view.y = bytes;
        view.strideY = stride;
        return view;
    }
    for (int row = 0; row < view.height; ++row)
        videoRangeFromFullLuma(bytes + static_cast<std::ptrdiff_t>(row) * stride,
                               loaded_.y() + static_cast<std::ptrdiff_t>(row) * view.strideY, view.width);
    // The chroma planes have no padding: each is one long row.
    const int chromaSize = view.chromaWidth() * view.chromaHeight();
    videoRangeFromFullChroma(loaded_.u(), loaded_.u(), chromaSize);
    videoRangeFromFullChroma(loaded_.v(), loaded_.v(), chromaSize);
    return view;
}

PlanarView FrameConverter::fit(const PlanarView& picture, const VideoLayout& target)
{
    const Placement placement = place(picture.width, picture.height, target);
    fitted_.resize(target.width, target.height, picture.halfHeightChroma);
    const PlanarView& view = fitted_.view();
    libyuv::SetPlane(fitted_.y(), view.strideY, view.width, view.height, kBlackLuma);
    libyuv::SetPlane(fitted_.u(), view.strideU, view.chromaWidth(), view.chromaHeight(), kNoChroma);
    libyuv::SetPlane(fitted_.v(), view.strideV, view.chromaWidth(), view.chromaHeight(), kNoChroma);

    libyuv::ScalePlane(picture.y, picture.strideY, picture.width, picture.height,
                       fitted_.y() + static_cast<std::ptrdiff_t>(placement.y) * view.strideY + placement.x,
                       view.strideY, placement.width, placement.height, libyuv::kFilterBox);
    const int rowsPerSample = picture.halfHeightChroma ? 2 : 1;
    const int chromaWidth = (placement.width + 1) / 2;
    const int chromaHeight = (placement.height + rowsPerSample - 1) / rowsPerSample;
    const std::ptrdiff_t corner =
        static_cast<std::ptrdiff_t>(placement.y / rowsPerSample) * view.strideU + placement.x / 2;
    libyuv::ScalePlane(picture.u, picture.strideU, picture.chromaWidth(), picture.chromaHeight(),
                       fitted_.u() + corner, view.strideU, chromaWidth, chromaHeight, libyuv::kFilterBox);
    libyuv::ScalePlane(picture.v, picture.strideV, picture.chromaWidth(), picture.chromaHeight(),
                       fitted_.v() + corner, view.strideV, chromaWidth, chromaHeight, libyuv::kFilterBox);
    return view;
}

void FrameConverter::store(const PlanarView& picture, const VideoLayout& target, std::uint8_t* pixels)
{
    const auto& [y, u, v, strideY, strideU, strideV, width, height, halfHeightChroma] = picture;
    switch (target.format) {
    case VideoFormat::yuy2: {
        const auto pack = halfHeightChroma ? libyuv::I420ToYUY2 : libyuv::I422ToYUY2;
        pack(y, strideY, u, strideU, v, strideV, pixels, target.stride(), width, height);
        break;
    }
    case VideoFormat::nv12: {
        std::uint8_t* const chroma = chromaOfNv12(target, pixels);
        if (halfHeightChroma)
            libyuv::I420ToNV12(y, strideY, u, strideU, v, strideV, pixels, target.stride(), chroma,
                               target.chromaWidth() * 2, width, height);
        else
            storeHalvingChroma(picture, target, pixels, chroma);
        break;
    }
    }
}

void FrameConverter::storeHalvingChroma(const PlanarView& picture, const VideoLayout& target,
                                        std::uint8_t* luma, std::uint8_t* chroma)
{
    halved_.resize(picture.width, picture.height, true);
    const PlanarView& view = halved_.view();
    libyuv::CopyPlane(picture.y, picture.strideY, luma, target.stride(), picture.width, picture.height);
    libyuv::ScalePlane(picture.u, picture.strideU, picture.chromaWidth(), picture.chromaHeight(), halved_.u(),
                       view.strideU, view.chromaWidth(), view.chromaHeight(), libyuv::kFilterBox);
    libyuv::ScalePlane(picture.v, picture.strideV, picture.chromaWidth(), picture.chromaHeight(), halved_.v(),
                       view.strideV, view.chromaWidth(), view.chromaHeight(), libyuv::kFilterBox);
    libyuv::MergeUVPlane(view.u, view.strideU, view.v, view.strideV, chroma, target.chromaWidth() * 2,
                         view.chromaWidth(), view.chromaHeight());
}

}  // namespace cmio
