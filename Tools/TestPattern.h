#pragma once

#include "Tools/VideoImage.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace pavo::tools {

// The frame counter of the pattern runs from 0 up to this, then from 0 again.
inline constexpr std::uint32_t kLargestCounter = (1u << 24) - 1;

// A moving picture by which frames can be told apart: colour bars, a bar that moves with the counter, the
// counter in large digits for people, and the same as a row of black and white cells that machines read after
// scaling and lossy coding.
class TestPattern final {
public:
    TestPattern(std::uint32_t width, std::uint32_t height);

    VideoFormat format() const { return background_.format(); }
    // `into` has the pattern's format.
    void draw(std::uint32_t counter, const ImageView& into);

private:
    Image background_;
};

// Brightness, 0 to 255, of a pixel.
using LumaReader = std::function<int(std::uint32_t x, std::uint32_t y)>;

// Reads the counter of a picture of any size that shows the whole pattern. None where it shows something
// else.
std::optional<std::uint32_t> readCounter(std::uint32_t width, std::uint32_t height, const LumaReader& luma);

}  // namespace pavo::tools
