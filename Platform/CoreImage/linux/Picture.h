#pragma once

#include "Platform/CoreImage/linux/AlignedBytes.h"

#include <cstddef>
#include <cstdint>

namespace ci {

// A decoded picture: one plane of bytes for each of red, green, blue and alpha, rows from top to bottom. The
// colours are multiplied by alpha, so that scaling does not mix in the colour of what cannot be seen. They
// are taken as the file has them: no gamma, no colour profile.
class Picture final {
public:
    static constexpr int kRed = 0;
    static constexpr int kGreen = 1;
    static constexpr int kBlue = 2;
    static constexpr int kAlpha = 3;

    // `pixels` are red, green, blue, alpha, a byte each, not multiplied.
    Picture(std::uint32_t width, std::uint32_t height, const std::uint8_t* pixels);

    // False where memory was out.
    bool isValid() const { return planes_.data() != nullptr; }
    std::uint32_t width() const { return width_; }
    std::uint32_t height() const { return height_; }
    bool isOpaque() const { return isOpaque_; }
    std::size_t stride() const { return stride_; }
    const std::uint8_t* plane(int index) const;

private:
    void fill(const std::uint8_t* pixels);

    std::uint32_t width_;
    std::uint32_t height_;
    std::size_t stride_;
    bool isOpaque_ = true;
    AlignedBytes planes_;
};

}  // namespace ci
