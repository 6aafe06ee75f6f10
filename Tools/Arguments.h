#pragma once

#include "Tools/FrameSource.h"
#include "Tools/Matrix.h"
#include "Tools/Result.h"

#include <string>
#include <string_view>

namespace pavo::tools {

// So many that nanoseconds still fit 64 bits.
inline constexpr double kLongestSeconds = 1e9;

struct Size {
    std::uint32_t width;
    std::uint32_t height;
};

// "1280x720", each side from 1 to kLargestSide.
Result<Size> parseSize(std::string_view text);
// "60", "29.97" or "30000/1001", above 0 and at most 1000.
Result<FrameRate> parseRate(std::string_view text);
// A whole number from 1.
Result<std::uint64_t> parseCount(std::string_view text);
// A whole number from 0 to 65535.
Result<std::uint16_t> parsePort(std::string_view text);
// Seconds, at most kLongestSeconds.
Result<double> parseDuration(std::string_view text);
// The same, 0 included.
Result<double> parseDelay(std::string_view text);
// Any text but an empty one, which scripts pass by mistake.
Result<std::string> parseName(std::string_view text);
// A name as nameOf(Packing) gives it, in any case.
Result<Packing> parsePacking(std::string_view text);
// "bt601" or "bt709", or "auto", which leaves it open.
Result<std::optional<Matrix>> parseMatrix(std::string_view text);
// Puts a number into the one place of a file name that asks for it: "shot-%04d.png".
Result<std::string> numberedName(std::string_view pattern, unsigned number);

}  // namespace pavo::tools
