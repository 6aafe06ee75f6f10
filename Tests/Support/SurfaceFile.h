#pragma once

#include "Frameworks/IOSurface/src/IOSurfaceTrailer.h"
#include "Platform/Support/UniqueFd.h"

#include <cstddef>

namespace pavo::test {

// The memory of a surface, written by hand as a peer might: right, but for what a test changes.
struct SurfaceFile {
    // 64 × 48 pixels of '2vuy'.
    SurfaceFile();

    iosurface::Trailer trailer{};
    std::size_t fileSize = 0;
    bool isSealed = true;

    // A memfd with zeros for pixels.
    UniqueFd make() const;
};

}  // namespace pavo::test
