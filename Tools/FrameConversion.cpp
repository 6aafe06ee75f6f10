#include "Tools/FrameConversion.h"

#include "Tools/TestPattern.h"

#include <algorithm>
#include <cmath>
#include <libyuv.h>

namespace pavo::tools {
namespace {

int signedOf(std::size_t value)
{
    return static_cast<int>(value);
}

// The second plane of NV12 follows the first one directly.
const std::uint8_t* chromaPlane(const CameraFrame& frame)
{
    return frame.bytes.data() + std::size_t{frame.strideBytes} * frame.height;
}

const libyuv::YuvConstants& constantsOf(Matrix matrix)
{
    return matrix == Matrix::bt601 ? libyuv::kYuvI601Constants : libyuv::kYuvH709Constants;
}

VideoFormat fittedFormat(const CameraFrame& frame, std::uint32_t mostWidth, std::uint32_t mostHeight)
{
    const double scale =
        std::min({1.0, double{1} * mostWidth / frame.width, double{1} * mostHeight / frame.height});
    const auto scaled = [scale](std::uint32_t side) {
        return std::max(1U, static_cast<std::uint32_t>(std::lround(side * scale)));
    };
    return {Packing::bgra, scaled(frame.width), scaled(frame.height)};
}

}  // namespace

KeptFrame::KeptFrame(const CameraFrame& borrowed)
    : frame(borrowed),
      bytes(borrowed.bytes.begin(), borrowed.bytes.end())
{
    frame.bytes = bytes;
}

bool isWhole(const CameraFrame& frame)
{
    const std::size_t width = frame.width, height = frame.height, stride = frame.strideBytes;
    if (width == 0 || height == 0 || width > kLargestSide || height > kLargestSide) return false;
    const std::size_t halfWidth = (width + 1) / 2, halfHeight = (height + 1) / 2;
    switch (frame.format) {
    case CameraFormat::yuy2:
    case CameraFormat::uyvy:
        return stride >= halfWidth * 4 && frame.bytes.size() >= stride * height;
    case CameraFormat::nv12:
        return stride >= halfWidth * 2 && frame.bytes.size() >= stride * (height + halfHeight);
    case CameraFormat::bgrx:
        return stride >= width * 4 && frame.bytes.size() >= stride * height;
    }
    return false;
}

Image i420Of(const CameraFrame& frame)
{
    Image image({Packing::i420, frame.width, frame.height});
    const ImageView view = image.view();
    const auto& [y, u, v] = view.planes;
    const std::uint8_t* bytes = frame.bytes.data();
    const int stride = signedOf(frame.strideBytes), width = signedOf(frame.width),
              height = signedOf(frame.height);
    const int yStride = signedOf(y.strideBytes), uStride = signedOf(u.strideBytes),
              vStride = signedOf(v.strideBytes);
    switch (frame.format) {
    case CameraFormat::yuy2:
        libyuv::YUY2ToI420(bytes, stride, y.data, yStride, u.data, uStride, v.data, vStride, width, height);
        break;
    case CameraFormat::uyvy:
        libyuv::UYVYToI420(bytes, stride, y.data, yStride, u.data, uStride, v.data, vStride, width, height);
        break;
    case CameraFormat::nv12:
        libyuv::NV12ToI420(bytes, stride, chromaPlane(frame), stride, y.data, yStride, u.data, uStride,
                           v.data, vStride, width, height);
        break;
    case CameraFormat::bgrx:
        libyuv::ARGBToI420(bytes, stride, y.data, yStride, u.data, uStride, v.data, vStride, width, height);
        break;
    }
    return image;
}

std::vector<std::uint8_t> rgbOf(const CameraFrame& frame)
{
    const int width = signedOf(frame.width), height = signedOf(frame.height);
    std::vector<std::uint8_t> rgb(std::size_t{frame.width} * frame.height * 3);
    if (frame.format == CameraFormat::bgrx) {
        libyuv::ARGBToRAW(frame.bytes.data(), signedOf(frame.strideBytes), rgb.data(), width * 3, width,
                          height);
        return rgb;
    }
    Image planar = i420Of(frame);
    const ImageView view = planar.view();
    std::vector<std::uint8_t> bgra(std::size_t{frame.width} * frame.height * 4);
    libyuv::I420ToARGBMatrix(view.planes[0].data, signedOf(view.planes[0].strideBytes), view.planes[1].data,
                             signedOf(view.planes[1].strideBytes), view.planes[2].data,
                             signedOf(view.planes[2].strideBytes), bgra.data(), width * 4,
                             &constantsOf(frame.matrix), width, height);
    libyuv::ARGBToRAW(bgra.data(), width * 4, rgb.data(), width * 3, width, height);
    return rgb;
}

Image bgraOf(const CameraFrame& frame, std::uint32_t mostWidth, std::uint32_t mostHeight)
{
    const VideoFormat format = fittedFormat(frame, mostWidth, mostHeight);
    const int width = signedOf(frame.width), height = signedOf(frame.height);
    const int smallWidth = signedOf(format.width), smallHeight = signedOf(format.height);
    Image picture(format);
    const ImageView view = picture.view();
    const auto& [data, stride] = view.planes[0];
    if (frame.format == CameraFormat::bgrx) {
        libyuv::ARGBScale(frame.bytes.data(), signedOf(frame.strideBytes), width, height, data,
                          signedOf(stride), smallWidth, smallHeight, libyuv::kFilterBox);
        // What is unused in the frame may be anything.
        const std::size_t size = stride * format.height;
        for (std::size_t i = 3; i < size; i += 4)
            data[i] = 0xFF;
        return picture;
    }
    Image whole = i420Of(frame);
    Image small({Packing::i420, format.width, format.height});
    const ImageView wholeView = whole.view(), smallView = small.view();
    const auto& [y, u, v] = wholeView.planes;
    const auto& [smallY, smallU, smallV] = smallView.planes;
    libyuv::I420Scale(y.data, signedOf(y.strideBytes), u.data, signedOf(u.strideBytes), v.data,
                      signedOf(v.strideBytes), width, height, smallY.data, signedOf(smallY.strideBytes),
                      smallU.data, signedOf(smallU.strideBytes), smallV.data, signedOf(smallV.strideBytes),
                      smallWidth, smallHeight, libyuv::kFilterBox);
    libyuv::I420ToARGBMatrix(smallY.data, signedOf(smallY.strideBytes), smallU.data,
                             signedOf(smallU.strideBytes), smallV.data, signedOf(smallV.strideBytes), data,
                             signedOf(stride), &constantsOf(frame.matrix), smallWidth, smallHeight);
    return picture;
}

std::optional<std::uint32_t> counterOf(const CameraFrame& frame)
{
    return readCounter(frame.width, frame.height, [&frame](std::uint32_t x, std::uint32_t y) -> int {
        const std::uint8_t* row = frame.bytes.data() + std::size_t{y} * frame.strideBytes;
        switch (frame.format) {
        case CameraFormat::yuy2:
            return row[std::size_t{x} * 2];
        case CameraFormat::uyvy:
            return row[std::size_t{x} * 2 + 1];
        case CameraFormat::nv12:
            return row[x];
        case CameraFormat::bgrx:
            break;
        }
        return row[std::size_t{x} * 4 + 1];  // the cells are grey, so green is as good as luma
    });
}

}  // namespace pavo::tools
