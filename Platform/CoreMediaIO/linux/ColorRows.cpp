#include "Platform/CoreMediaIO/linux/ColorRows.h"

namespace cmio {

namespace {

// Factors are 256 times the exact ones, rounded so that a grey has no chroma and white has luma 235. All
// sums fit 16 bits, which doubles the pixels of a vector.
constexpr int kHalf = 128;

std::uint8_t blueDifference(int r, int g, int b)
{
    const auto sum = static_cast<std::int16_t>(112 * b - 26 * r - 86 * g + kHalf);
    return static_cast<std::uint8_t>((sum >> 8) + 128);
}

std::uint8_t redDifference(int r, int g, int b)
{
    const auto sum = static_cast<std::int16_t>(112 * r - 102 * g - 10 * b + kHalf);
    return static_cast<std::uint8_t>((sum >> 8) + 128);
}

}  // namespace

void lumaFromRgb(const std::uint8_t* r, const std::uint8_t* g, const std::uint8_t* b, std::uint8_t* y,
                 int width)
{
    for (int x = 0; x < width; ++x) {
        const auto sum = static_cast<std::uint16_t>(47 * r[x] + 157 * g[x] + 16 * b[x] + 16 * 256 + kHalf);
        y[x] = static_cast<std::uint8_t>(sum >> 8);
    }
}

void chromaFromRgb(const std::uint8_t* r, const std::uint8_t* g, const std::uint8_t* b, std::uint8_t* u,
                   std::uint8_t* v, int width)
{
    for (int x = 0; x < width / 2; ++x) {
        const int meanR = (r[2 * x] + r[2 * x + 1] + 1) >> 1;
        const int meanG = (g[2 * x] + g[2 * x + 1] + 1) >> 1;
        const int meanB = (b[2 * x] + b[2 * x + 1] + 1) >> 1;
        u[x] = blueDifference(meanR, meanG, meanB);
        v[x] = redDifference(meanR, meanG, meanB);
    }
    if (width % 2 != 0) {
        u[width / 2] = blueDifference(r[width - 1], g[width - 1], b[width - 1]);
        v[width / 2] = redDifference(r[width - 1], g[width - 1], b[width - 1]);
    }
}

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
