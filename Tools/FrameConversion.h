#pragma once

#include "Tools/CameraClient.h"
#include "Tools/VideoImage.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace pavo::tools {

// A frame that was copied out of the camera's memory, without padding between frames.
struct KeptFrame {
    CameraFrame frame;  // its bytes are those below
    std::vector<std::uint8_t> bytes;

    explicit KeptFrame(const CameraFrame& borrowed);
};

// Whether a frame's bytes are as many as its format, size and stride need.
bool isWhole(const CameraFrame& frame);

// Colours as the camera means them: with the frame's matrix, in video range. The frame must be whole.
std::vector<std::uint8_t> rgbOf(const CameraFrame& frame);
Image i420Of(const CameraFrame& frame);
// For screens: opaque BGRA of the frame's shape, at most that large, and no larger than the frame, which must
// be whole.
Image bgraOf(const CameraFrame& frame, std::uint32_t mostWidth, std::uint32_t mostHeight);

// The test pattern's counter, where the frame shows the whole pattern. The frame must be whole.
std::optional<std::uint32_t> counterOf(const CameraFrame& frame);

}  // namespace pavo::tools
