#pragma once

#include <cstdint>

namespace cmio {

// Conversions of one row that libyuv does not have. Plain loops, which compilers turn into vector code.
//
// Errors: none; results are within one step of the exact ones.

// 0…255 becomes 16…235.
void videoRangeFromFullLuma(const std::uint8_t* full, std::uint8_t* video, int width);

// 0…255 becomes 16…240, and 128 stays.
void videoRangeFromFullChroma(const std::uint8_t* full, std::uint8_t* video, int width);

}  // namespace cmio
