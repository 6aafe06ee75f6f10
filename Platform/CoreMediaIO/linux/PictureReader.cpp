#include "Platform/CoreMediaIO/linux/PictureReader.h"

#include <limits>
#include <utility>

namespace cmio {

namespace {

// Far above what anyone sends, and low enough that no product of two lengths overflows.
constexpr std::size_t kMaxDimension = 16384;

std::size_t planeCount(OSType format)
{
    switch (format) {
    case kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange:
    case kCVPixelFormatType_420YpCbCr8BiPlanarFullRange:
        return 2;
    case kCVPixelFormatType_420YpCbCr8Planar:
        return 3;
    default:
        return 0;
    }
}

// Bytes that a row of the plane has at least.
std::size_t rowSize(OSType format, std::size_t plane, std::size_t width)
{
    const std::size_t chromaWidth = (width + 1) / 2;
    switch (format) {
    case kCVPixelFormatType_32BGRA:
        return width * 4;
    case kCVPixelFormatType_422YpCbCr8:
    case kCVPixelFormatType_422YpCbCr8_yuvs:
        return chromaWidth * 4;
    case kCVPixelFormatType_420YpCbCr8Planar:
        return plane == 0 ? width : chromaWidth;
    default:
        return plane == 0 ? width : chromaWidth * 2;
    }
}

}  // namespace

bool PictureReader::isSupported(OSType format)
{
    switch (format) {
    case kCVPixelFormatType_32BGRA:
    case kCVPixelFormatType_422YpCbCr8:
    case kCVPixelFormatType_422YpCbCr8_yuvs:
    case kCVPixelFormatType_420YpCbCr8Planar:
    case kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange:
    case kCVPixelFormatType_420YpCbCr8BiPlanarFullRange:
        return true;
    default:
        return false;
    }
}

PictureReader::PictureReader(cf::Ref<CVPixelBufferRef> buffer)
    : buffer_(std::move(buffer)),
      format_(CVPixelBufferGetPixelFormatType(buffer_.get()))
{
    const std::size_t width = CVPixelBufferGetWidth(buffer_.get());
    const std::size_t height = CVPixelBufferGetHeight(buffer_.get());
    if (!isSupported(format_) || width == 0 || height == 0 || width > kMaxDimension || height > kMaxDimension)
        return;
    width_ = static_cast<int>(width);
    height_ = static_cast<int>(height);
    isLocked_ = CVPixelBufferLockBaseAddress(buffer_.get(), kCVPixelBufferLock_ReadOnly) == kCVReturnSuccess;
    isValid_ = isLocked_ && readPlanes();
}

PictureReader::~PictureReader()
{
    if (isLocked_) CVPixelBufferUnlockBaseAddress(buffer_.get(), kCVPixelBufferLock_ReadOnly);
}

bool PictureReader::readPlanes()
{
    CVPixelBufferRef buffer = buffer_.get();
    const std::size_t count = planeCount(format_);
    if (CVPixelBufferGetPlaneCount(buffer) != count) return false;
    for (std::size_t index = 0; index < (count == 0 ? 1 : count); ++index) {
        const bool isPacked = count == 0;
        const std::size_t rows =
            isPacked ? CVPixelBufferGetHeight(buffer) : CVPixelBufferGetHeightOfPlane(buffer, index);
        const std::size_t neededRows = static_cast<std::size_t>(index == 0 ? height_ : (height_ + 1) / 2);
        const std::size_t stride = isPacked ? CVPixelBufferGetBytesPerRow(buffer)
                                            : CVPixelBufferGetBytesPerRowOfPlane(buffer, index);
        const void* bytes = isPacked ? CVPixelBufferGetBaseAddress(buffer)
                                     : CVPixelBufferGetBaseAddressOfPlane(buffer, index);
        if (!bytes || rows < neededRows || stride > std::numeric_limits<int>::max() ||
            stride < rowSize(format_, index, static_cast<std::size_t>(width_)))
            return false;
        planes_[index] = {static_cast<const std::uint8_t*>(bytes), static_cast<int>(stride)};
    }
    return true;
}

}  // namespace cmio
