#include "Tests/Platform/CoreMediaIO/Pictures.h"

#include <cmath>

namespace cmio::test {

namespace {

YCbCr convert(Rgb color, double lumaRange, double lumaOffset, double chromaRange)
{
    const double y = (0.299 * color.r + 0.587 * color.g + 0.114 * color.b) / 255;
    const double cb = (color.b / 255.0 - y) / 1.772;
    const double cr = (color.r / 255.0 - y) / 1.402;
    const auto clamped = [](double value) { return static_cast<int>(std::lround(std::fmin(value, 255))); };
    return {clamped(y * lumaRange + lumaOffset), clamped(cb * chromaRange + 128),
            clamped(cr * chromaRange + 128)};
}

cf::Ref<CFNumberRef> number(int value)
{
    return cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &value));
}

cf::Ref<CFDictionaryRef> attributes(bool inSurface)
{
    const auto alignment = number(64);
    const auto empty =
        cf::adopt(CFDictionaryCreate(kCFAllocatorDefault, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks));
    const void* keys[] = {kCVPixelBufferBytesPerRowAlignmentKey, kCVPixelBufferIOSurfacePropertiesKey};
    const void* values[] = {alignment.get(), empty.get()};
    return cf::adopt(CFDictionaryCreate(kCFAllocatorDefault, keys, values, inSurface ? 2 : 1,
                                        &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

std::uint8_t* pixelsAt(CVPixelBufferRef picture, std::size_t plane, int byte, int row)
{
    const bool isPlanar = CVPixelBufferIsPlanar(picture) != 0;
    void* base =
        isPlanar ? CVPixelBufferGetBaseAddressOfPlane(picture, plane) : CVPixelBufferGetBaseAddress(picture);
    const std::size_t stride =
        isPlanar ? CVPixelBufferGetBytesPerRowOfPlane(picture, plane) : CVPixelBufferGetBytesPerRow(picture);
    return static_cast<std::uint8_t*>(base) + static_cast<std::size_t>(row) * stride + byte;
}

std::uint8_t byteOf(int value)
{
    return static_cast<std::uint8_t>(value);
}

void setPixel(CVPixelBufferRef picture, int x, int y, Rgb color)
{
    const OSType format = CVPixelBufferGetPixelFormatType(picture);
    const YCbCr video =
        format == kCVPixelFormatType_420YpCbCr8BiPlanarFullRange ? toFullRange(color) : toVideoRange(color);
    const int chroma = x % 2 == 0 ? video.cb : video.cr;
    switch (format) {
    case kCVPixelFormatType_32BGRA: {
        std::uint8_t* pixel = pixelsAt(picture, 0, x * 4, y);
        pixel[0] = byteOf(color.b);
        pixel[1] = byteOf(color.g);
        pixel[2] = byteOf(color.r);
        pixel[3] = 0;  // transparent: what a client shows must not depend on it
        break;
    }
    case kCVPixelFormatType_422YpCbCr8:
        *pixelsAt(picture, 0, x * 2, y) = byteOf(chroma);
        *pixelsAt(picture, 0, x * 2 + 1, y) = byteOf(video.y);
        break;
    case kCVPixelFormatType_422YpCbCr8_yuvs:
        *pixelsAt(picture, 0, x * 2, y) = byteOf(video.y);
        *pixelsAt(picture, 0, x * 2 + 1, y) = byteOf(chroma);
        break;
    case kCVPixelFormatType_420YpCbCr8Planar:
        *pixelsAt(picture, 0, x, y) = byteOf(video.y);
        *pixelsAt(picture, 1, x / 2, y / 2) = byteOf(video.cb);
        *pixelsAt(picture, 2, x / 2, y / 2) = byteOf(video.cr);
        break;
    default:
        *pixelsAt(picture, 0, x, y) = byteOf(video.y);
        *pixelsAt(picture, 1, x / 2 * 2, y / 2) = byteOf(video.cb);
        *pixelsAt(picture, 1, x / 2 * 2 + 1, y / 2) = byteOf(video.cr);
        break;
    }
}

}  // namespace

YCbCr toVideoRange(Rgb color)
{
    return convert(color, 219, 16, 224);
}

YCbCr toFullRange(Rgb color)
{
    return convert(color, 255, 0, 255);
}

cf::Ref<CVPixelBufferRef> makePicture(OSType format, int width, int height, Rgb color, bool inSurface)
{
    cf::Ref<CVPixelBufferRef> picture;
    const auto options = attributes(inSurface);
    CVPixelBufferCreate(kCFAllocatorDefault, static_cast<std::size_t>(width),
                        static_cast<std::size_t>(height), format, options.get(), picture.receive());
    if (picture) fillRectangle(picture.get(), 0, 0, width, height, color);
    return picture;
}

void fillRectangle(CVPixelBufferRef picture, int x, int y, int width, int height, Rgb color)
{
    CVPixelBufferLockBaseAddress(picture, 0);
    // A packed row of odd width holds the chroma of one pixel more.
    const bool isPacked = !CVPixelBufferIsPlanar(picture) &&
                          CVPixelBufferGetPixelFormatType(picture) != kCVPixelFormatType_32BGRA;
    const int end = isPacked ? (x + width + 1) & ~1 : x + width;
    for (int row = y; row < y + height; ++row)
        for (int column = x; column < end; ++column)
            setPixel(picture, column, row, color);
    CVPixelBufferUnlockBaseAddress(picture, 0);
}

}  // namespace cmio::test
