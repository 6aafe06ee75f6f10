#pragma once

#include "Platform/Support/Ref.h"

#include <CoreVideo/CoreVideo.h>

#include <array>
#include <cstdint>
#include <span>

namespace cmio::test {

struct Rgb {
    int r;
    int g;
    int b;
};

// Luma and chroma as a client reads them.
struct YCbCr {
    int y;
    int cb;
    int cr;
};

// BT.601, video range.
YCbCr toVideoRange(Rgb color);
// BT.601, full range, as of '420f'.
YCbCr toFullRange(Rgb color);

// A buffer of one colour, with rows padded so that nobody takes the width for the stride. `inSurface` puts it
// into an IOSurface of this process.
cf::Ref<CVPixelBufferRef> makePicture(OSType format, int width, int height, Rgb color,
                                      bool inSurface = false);

// Draws a rectangle, in even coordinates, of another colour into it.
void fillRectangle(CVPixelBufferRef picture, int x, int y, int width, int height, Rgb color);

}  // namespace cmio::test
