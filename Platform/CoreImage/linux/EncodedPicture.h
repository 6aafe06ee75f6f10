#pragma once

#include "Platform/CoreImage/linux/Picture.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ci {

// A picture as its file has it. Its pixels take many times as much memory, and are wanted only when the
// picture is drawn, which is rare: so they are decoded for each drawing.
class EncodedPicture final {
public:
    static constexpr std::size_t kFileSizeLimit = 64U << 20U;
    static constexpr std::uint32_t kDimensionLimit = 16384;
    static constexpr std::uint64_t kPixelCountLimit = 64U << 20U;

    // Reads a PNG file of any kind and sees that it is whole. Null, with a line in the log, where it is
    // missing, broken or too large.
    static std::shared_ptr<const EncodedPicture> fromFile(const std::string& path);

    // `png` is whole, and `width` × `height`.
    EncodedPicture(std::string path, std::vector<std::uint8_t> png, std::uint32_t width,
                   std::uint32_t height);

    std::uint32_t width() const { return width_; }
    std::uint32_t height() const { return height_; }
    // None, with a line in the log, where memory is out, or whoever wrote the picture wrote no pixels.
    std::optional<Picture> decoded() const;

private:
    const std::string path_;
    const std::vector<std::uint8_t> png_;
    const std::uint32_t width_;
    const std::uint32_t height_;
};

}  // namespace ci
