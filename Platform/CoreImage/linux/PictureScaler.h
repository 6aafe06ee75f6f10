#pragma once

#include "Platform/CoreImage/linux/Picture.h"

#include <cstddef>
#include <cstdint>

namespace ci {

// A rectangle of whole pixels in rows that run from top to bottom, as blue, green, red, alpha.
struct TargetPixels {
    std::uint8_t* data = nullptr;
    std::size_t bytesPerRow = 0;
    unsigned width = 0;
    unsigned height = 0;
};

// The part of a picture, in its pixels from the top left corner, that fills a target.
struct SourceRegion {
    double left = 0;
    double top = 0;
    double width = 0;
    double height = 0;
};

// Fills the target with the region, resampled by a Lanczos filter with three lobes; beyond its edges the
// picture goes on as its mirror image. False, with a line in the log and the target as it was, where that is
// not possible: memory is out, or the region is too small or too large for the target.
bool scalePicture(const Picture& picture, const SourceRegion& region, const TargetPixels& target);

}  // namespace ci
