#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace ci {

// Memory for rows of samples, placed as the scaler's vector code wants it.
class AlignedBytes final {
public:
    static constexpr std::size_t kAlignment = 64;

    static constexpr std::size_t alignedSize(std::size_t size)
    {
        return (size + kAlignment - 1) / kAlignment * kAlignment;
    }

    AlignedBytes() = default;
    // Not cleared. Null data where memory is out.
    explicit AlignedBytes(std::size_t size)
        : bytes_(static_cast<std::uint8_t*>(std::aligned_alloc(kAlignment, alignedSize(size))))
    {}

    std::uint8_t* data() const { return bytes_.get(); }

private:
    struct Free {
        void operator()(void* bytes) const { std::free(bytes); }
    };

    std::unique_ptr<std::uint8_t, Free> bytes_;
};

// A decoded picture: one plane of bytes for each of red, green, blue and alpha, rows from top to bottom. The
// colours are multiplied by alpha, so that scaling does not mix in the colour of what cannot be seen. They
// are taken as the file has them: no gamma, no colour profile.
class Picture final {
public:
    static constexpr std::uint32_t kDimensionLimit = 16384;
    static constexpr std::uint64_t kPixelCountLimit = 64U << 20U;
    static constexpr int kRed = 0;
    static constexpr int kGreen = 1;
    static constexpr int kBlue = 2;
    static constexpr int kAlpha = 3;

    // Reads a PNG file of any kind; null, with a line in the log, where it is missing, broken or too large.
    static std::shared_ptr<const Picture> fromFile(const std::string& path);

    Picture(std::uint32_t width, std::uint32_t height);

    std::uint32_t width() const { return width_; }
    std::uint32_t height() const { return height_; }
    bool isOpaque() const { return isOpaque_; }
    std::size_t stride() const { return stride_; }
    const std::uint8_t* plane(int index) const;

private:
    // `pixels` are red, green, blue, alpha, not multiplied.
    void fill(const std::uint8_t* pixels);

    std::uint32_t width_;
    std::uint32_t height_;
    std::size_t stride_;
    bool isOpaque_ = true;
    AlignedBytes planes_;
};

}  // namespace ci
