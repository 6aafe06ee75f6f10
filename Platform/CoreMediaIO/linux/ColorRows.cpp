#include "Platform/CoreMediaIO/linux/ColorRows.h"

namespace cmio {

namespace {

// Factors are 256 times the exact ones; all sums fit 16 bits, which doubles the pixels of a vector.
constexpr int kHalf = 128;

}  // namespace

void videoRangeFromFullLuma(const std::uint8_t* full, std::uint8_t* video, int width)
{
    for (int x = 0; x < width; ++x)
        video[x] =
            static_cast<std::uint8_t>(static_cast<std::uint16_t>(220 * full[x] + 16 * 256 + kHalf) >> 8);
}

void videoRangeFromFullChroma(const std::uint8_t* full, std::uint8_t* video, int width)
{
    for (int x = 0; x < width; ++x)
        video[x] = static_cast<std::uint8_t>(static_cast<std::uint16_t>(225 * full[x] + 16 * 256) >> 8);
}

}  // namespace cmio
