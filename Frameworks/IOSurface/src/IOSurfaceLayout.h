#pragma once

#include "IOSurfaceTrailer.h"

#include <CoreFoundation/CoreFoundation.h>

#include <array>
#include <cstdint>
#include <optional>

namespace iosurface {

// Where the pixels of a surface, or of one of its planes, lie. All fields are wide enough for whatever a
// caller or a peer claims; nothing may be computed from them before findProblem() has found none.
struct Plane {
    std::uint64_t width = 0;
    std::uint64_t height = 0;
    std::uint64_t bytesPerElement = 0;
    std::uint64_t bytesPerRow = 0;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

struct Layout {
    std::uint32_t pixelFormat = 0;
    std::uint64_t allocSize = 0;
    Plane whole;  // of a surface with planes only the width and the height count
    std::uint64_t planeCount = 0;
    std::array<Plane, kMaxPlaneCount> planes;
};

// Why the layout is not sound, in words for the log; null where it is.
const char* findProblem(const Layout& layout);

// The layout that the properties ask for, with what they leave out filled in. None, with `problem` set, where
// they cannot be understood. It has not been checked further.
std::optional<Layout> layoutFromProperties(CFDictionaryRef properties, const char** problem);

Layout layoutFromTrailer(const Trailer& trailer);
// Of a layout without a problem. Seed and use count are zero.
Trailer trailerFor(const Layout& layout);

// Of a layout without a problem.
constexpr std::uint64_t fileSizeFor(std::uint64_t allocSize)
{
    return (allocSize + kTrailerSize - 1) / kTrailerSize * kTrailerSize + kTrailerSize;
}

}  // namespace iosurface
