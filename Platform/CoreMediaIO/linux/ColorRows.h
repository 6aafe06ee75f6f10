#pragma once

#include <cstdint>

namespace cmio {

// Conversions of one row that libyuv does not have: its own matrix for RGB is BT.601, which HD clients would
// show in wrong colours. Plain loops over separate planes, which compilers turn into vector code.
//
// Errors: none; results are within one step of the exact ones.

// BT.709 luma, video range, of `width` pixels.
void lumaFromRgb(const std::uint8_t* r, const std::uint8_t* g, const std::uint8_t* b, std::uint8_t* y,
                 int width);

// BT.709 chroma, video range: one sample for each two pixels, the last one for a single pixel if `width` is
// odd.
void chromaFromRgb(const std::uint8_t* r, const std::uint8_t* g, const std::uint8_t* b, std::uint8_t* u,
                   std::uint8_t* v, int width);

// 0…255 becomes 16…235.
void videoRangeFromFullLuma(const std::uint8_t* full, std::uint8_t* video, int width);

// 0…255 becomes 16…240, and 128 stays.
void videoRangeFromFullChroma(const std::uint8_t* full, std::uint8_t* video, int width);

}  // namespace cmio
