#pragma once

#include "Platform/CoreImage/CoreImage.h"
#include "Platform/Support/Ref.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace pavo::test {

struct Pixel {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;
    std::uint8_t alpha = 255;

    bool operator==(const Pixel&) const = default;
};

// Counted from the top left corner.
using Painter = std::function<Pixel(std::uint32_t x, std::uint32_t y)>;

// A PNG file's bytes with 8 bits of red, green, blue and alpha.
std::string pngBytes(std::uint32_t width, std::uint32_t height, const Painter& painter,
                     bool isInterlaced = false);
// One of another kind: colour type and bit depth as PNG numbers them, `pixels` as they are in the file.
std::string pngBytes(std::uint32_t width, std::uint32_t height, std::uint8_t colourType,
                     std::uint8_t bitDepth, const std::vector<std::uint8_t>& pixels);
void writeFile(const std::string& path, const std::string& bytes);
// The image of such a picture, by way of a temporary file.
ci::Image makeImage(std::uint32_t width, std::uint32_t height, const Painter& painter);

// A 32BGRA buffer, all of whose bytes, padding included, are `fill`.
cf::Ref<CVPixelBufferRef> makeBuffer(std::size_t width, std::size_t height, std::uint8_t fill,
                                     std::int32_t rowAlignment = 1);
// The pixels, row by row from the top.
std::vector<Pixel> pixelsOf(CVPixelBufferRef buffer);

}  // namespace pavo::test
