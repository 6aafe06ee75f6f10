#pragma once

#include "Tools/Matrix.h"
#include "Tools/VideoImage.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pavo::tools {

// Turns luma and chroma that were made with one matrix into those of another, both in video range. Each luma
// takes the chroma of its own block, without the filter of a whole conversion to RGB and back: chroma alone
// says how much changes, and that is little.
//
// Threads: one at a time. It keeps memory for a row.
class MatrixConversion final {
public:
    MatrixConversion(Matrix from, Matrix to);

    // In place. BGRA has neither luma nor chroma.
    void convert(const ImageView& picture);

private:
    // What each value gains of blue and red difference.
    struct Factors {
        std::int16_t lumaOfBlue, lumaOfRed;
        std::int16_t blueOfBlue, blueOfRed;
        std::int16_t redOfBlue, redOfRed;
    };

    static Factors factorsBetween(Matrix from, Matrix to);
    void convertPacked(const ImageView& picture);
    void convertHalved(const ImageView& picture);
    void convertChroma(std::uint8_t* blue, std::uint8_t* red, std::size_t width);
    void convertLuma(std::uint8_t* luma, std::size_t width) const;

    const Factors factors_;
    // Of the luma in a row: for each sample of chroma, and for each pixel.
    std::vector<std::int16_t> sampleChange_;
    std::vector<std::int16_t> pixelChange_;
    std::vector<std::uint8_t> luma_;
    std::vector<std::uint8_t> blue_;
    std::vector<std::uint8_t> red_;
};

}  // namespace pavo::tools
