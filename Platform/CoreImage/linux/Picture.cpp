#include "Platform/CoreImage/linux/Picture.h"

namespace ci {

namespace {

constexpr std::size_t kBytesPerPixel = 4;

std::uint8_t multiplied(std::uint8_t colour, std::uint8_t alpha)
{
    return static_cast<std::uint8_t>((colour * alpha + 127) / 255);
}

}  // namespace

Picture::Picture(std::uint32_t width, std::uint32_t height, const std::uint8_t* pixels)
    : width_(width),
      height_(height),
      stride_(AlignedBytes::alignedSize(width)),
      planes_(4 * stride_ * height)
{
    if (isValid()) fill(pixels);
}

const std::uint8_t* Picture::plane(int index) const
{
    return planes_.data() + static_cast<std::size_t>(index) * stride_ * height_;
}

void Picture::fill(const std::uint8_t* pixels)
{
    const std::size_t planeSize = stride_ * height_;
    for (std::size_t y = 0; y < height_; ++y) {
        auto* target = planes_.data() + y * stride_;
        for (std::size_t x = 0; x < width_; ++x, pixels += kBytesPerPixel) {
            const std::uint8_t alpha = pixels[kAlpha];
            target[x] = multiplied(pixels[kRed], alpha);
            target[planeSize + x] = multiplied(pixels[kGreen], alpha);
            target[2 * planeSize + x] = multiplied(pixels[kBlue], alpha);
            target[3 * planeSize + x] = alpha;
            isOpaque_ = isOpaque_ && alpha == 255;
        }
    }
}

}  // namespace ci
