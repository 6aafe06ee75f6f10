#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace pavo::tools {

// How the pixels of a picture lie in memory.
enum class Packing { uyvy, yuy2, nv12, i420, bgra };

std::string_view nameOf(Packing packing);

// The largest width or height that the commands take.
inline constexpr std::uint32_t kLargestSide = 16384;

struct VideoFormat {
    Packing packing;
    std::uint32_t width;
    std::uint32_t height;
};

// The bytes of one plane's rows, without padding.
struct PlaneLayout {
    std::size_t rowBytes;
    std::size_t rows;
};

// The planes of a picture without padding, in the order in which they are stored.
std::vector<PlaneLayout> planesOf(const VideoFormat& format);
std::size_t frameBytes(const VideoFormat& format);

// A picture in memory that somebody else owns.
struct ImageView {
    struct Plane {
        std::uint8_t* data;
        std::size_t strideBytes;
    };

    VideoFormat format;
    std::array<Plane, 3> planes;

    std::uint8_t* row(std::size_t plane, std::size_t y) const
    {
        return planes[plane].data + y * planes[plane].strideBytes;
    }
};

// A picture in memory of its own, without padding.
class Image final {
public:
    explicit Image(const VideoFormat& format);
    // `bytes` are those of a whole picture.
    Image(const VideoFormat& format, std::vector<std::uint8_t> bytes);

    const VideoFormat& format() const { return format_; }
    ImageView view();
    const std::vector<std::uint8_t>& bytes() const { return bytes_; }

private:
    VideoFormat format_;
    std::vector<std::uint8_t> bytes_;
};

// Copies all rows; both must have the same format.
void copyImage(const ImageView& from, const ImageView& to);

}  // namespace pavo::tools
