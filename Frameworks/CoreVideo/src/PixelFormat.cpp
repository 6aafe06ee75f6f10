#include "PixelFormat.h"

#include <algorithm>

namespace corevideo {

namespace {

constexpr std::size_t dividedUp(std::size_t value, std::size_t divisor)
{
    return (value + divisor - 1) / divisor;
}

constexpr PlaneFormat kPairs = {1, 1, 2, 4};
constexpr PlaneFormat kLuma = {1, 1, 1, 1};
constexpr PlaneFormat kQuarterChroma = {2, 2, 1, 1};
constexpr PlaneFormat kQuarterChromaPairs = {2, 2, 1, 2};
constexpr PlaneFormat kFourBytes = {1, 1, 1, 4};
constexpr PlaneFormat kNone = {1, 1, 1, 0};

constexpr std::array<PixelFormat, 6> kFormats = {{
    {kCVPixelFormatType_422YpCbCr8, 0, {kPairs, kNone, kNone}},
    {kCVPixelFormatType_422YpCbCr8_yuvs, 0, {kPairs, kNone, kNone}},
    {kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, 2, {kLuma, kQuarterChromaPairs, kNone}},
    {kCVPixelFormatType_420YpCbCr8BiPlanarFullRange, 2, {kLuma, kQuarterChromaPairs, kNone}},
    {kCVPixelFormatType_420YpCbCr8Planar, 3, {kLuma, kQuarterChroma, kQuarterChroma}},
    {kCVPixelFormatType_32BGRA, 0, {kFourBytes, kNone, kNone}},
}};

}  // namespace

std::size_t PixelFormat::widthOf(std::size_t part, std::size_t width) const
{
    return dividedUp(width, planes[part].widthDivisor);
}

std::size_t PixelFormat::heightOf(std::size_t part, std::size_t height) const
{
    return dividedUp(height, planes[part].heightDivisor);
}

std::size_t PixelFormat::bytesPerRowOf(std::size_t part, std::size_t width) const
{
    return dividedUp(widthOf(part, width), planes[part].pixelsPerBlock) * planes[part].bytesPerBlock;
}

const PixelFormat* findPixelFormat(OSType code)
{
    const auto found = std::find_if(kFormats.begin(), kFormats.end(),
                                    [code](const PixelFormat& format) { return format.code == code; });
    return found == kFormats.end() ? nullptr : &*found;
}

}  // namespace corevideo
