#pragma once

#include <CoreVideo/CoreVideo.h>

#include <array>
#include <cstddef>

namespace corevideo {

inline constexpr std::size_t kMaxPlanes = 3;
inline constexpr std::size_t kMaxDimension = 16384;  // what a surface may have, each way

// How one plane of a format is laid out. A row consists of whole blocks.
struct PlaneFormat {
    std::size_t widthDivisor;  // pixels of the picture for one pixel of the plane
    std::size_t heightDivisor;
    std::size_t pixelsPerBlock;
    std::size_t bytesPerBlock;
};

struct PixelFormat {
    OSType code;
    std::size_t planeCount;  // 0: not planar, and `planes[0]` is all there is
    std::array<PlaneFormat, kMaxPlanes> planes;

    // How many of `planes` hold pixels.
    std::size_t partCount() const { return planeCount ? planeCount : 1; }
    std::size_t widthOf(std::size_t part, std::size_t width) const;
    std::size_t heightOf(std::size_t part, std::size_t height) const;
    // Of a picture `width` pixels wide; without padding.
    std::size_t bytesPerRowOf(std::size_t part, std::size_t width) const;
    std::size_t bytesPerPixelOf(std::size_t part) const
    {
        return planes[part].bytesPerBlock / planes[part].pixelsPerBlock;
    }
};

// Null for a format that is not supported.
const PixelFormat* findPixelFormat(OSType code);

}  // namespace corevideo
