#include "Tools/MatrixConversion.h"

#include "Platform/Support/Fatal.h"

#include <libyuv.h>

#include <algorithm>
#include <cmath>

namespace pavo::tools {
namespace {

// All of it is done with 16 bits, which is what vector code multiplies fastest: chroma has its 8 bits above,
// a factor is 4096 times the exact one, and of their product the upper half counts, which is 16 times exact.
constexpr int kNoChroma = 128;
constexpr int kChromaScale = 256;
constexpr double kFactorScale = 4096;
constexpr int kSumShift = 4;
constexpr int kHalf = 1 << (kSumShift - 1);
// How many steps video range has.
constexpr double kLumaSteps = 219;
constexpr double kChromaSteps = 224;

// The parts of red and blue in luma.
struct Weights {
    double red, blue;
};

constexpr Weights weightsOf(Matrix matrix)
{
    return matrix == Matrix::bt601 ? Weights{0.299, 0.114} : Weights{0.2126, 0.0722};
}

// Blue and red without luma, and with them what the other luma has more.
struct Differences {
    double blue, red, luma;
};

constexpr Differences differencesOf(double blueChroma, double redChroma, Weights from, Weights to)
{
    const double blue = 2 * (1 - from.blue) * blueChroma;
    const double red = 2 * (1 - from.red) * redChroma;
    const double green = -(from.blue * blue + from.red * red) / (1 - from.blue - from.red);
    return {blue, red, to.blue * blue + to.red * red + (1 - to.blue - to.red) * green};
}

std::int16_t factor(double exact)
{
    return static_cast<std::int16_t>(std::lround(exact * kFactorScale));
}

// What a row's samples change by.
std::int16_t change(std::int16_t blue, std::int16_t factorOfBlue, std::int16_t red, std::int16_t factorOfRed)
{
    const auto part = [](std::int16_t a, std::int16_t b) { return static_cast<std::int16_t>((a * b) >> 16); };
    return static_cast<std::int16_t>((part(blue, factorOfBlue) + part(red, factorOfRed) + kHalf) >>
                                     kSumShift);
}

std::int16_t scaled(std::uint8_t chroma)
{
    return static_cast<std::int16_t>((chroma - kNoChroma) * kChromaScale);
}

std::uint8_t changed(std::uint8_t value, std::int16_t by)
{
    const auto sum = static_cast<std::int16_t>(value + by);
    return static_cast<std::uint8_t>(std::clamp<std::int16_t>(sum, 0, 255));
}

}  // namespace

MatrixConversion::Factors MatrixConversion::factorsBetween(Matrix from, Matrix to)
{
    const Weights source = weightsOf(from), target = weightsOf(to);
    const Differences ofBlue = differencesOf(1, 0, source, target);
    const Differences ofRed = differencesOf(0, 1, source, target);
    const double luma = kLumaSteps / kChromaSteps;
    const double blue = 1 / (2 * (1 - target.blue)), red = 1 / (2 * (1 - target.red));
    return {factor(ofBlue.luma * luma),
            factor(ofRed.luma * luma),
            factor((ofBlue.blue - ofBlue.luma) * blue - 1),
            factor((ofRed.blue - ofRed.luma) * blue),
            factor((ofBlue.red - ofBlue.luma) * red),
            factor((ofRed.red - ofRed.luma) * red - 1)};
}

MatrixConversion::MatrixConversion(Matrix from, Matrix to) : factors_(factorsBetween(from, to)) {}

void MatrixConversion::convert(const ImageView& picture)
{
    const std::size_t chromaWidth = (picture.format.width + std::size_t{1}) / 2;
    sampleChange_.resize(chromaWidth);
    // With the second half of the last pair in an odd row.
    pixelChange_.resize(chromaWidth * 2);
    luma_.resize(chromaWidth * 2);
    blue_.resize(chromaWidth);
    red_.resize(chromaWidth);
    switch (picture.format.packing) {
    case Packing::uyvy:
    case Packing::yuy2:
        return convertPacked(picture);
    case Packing::nv12:
    case Packing::i420:
        return convertHalved(picture);
    case Packing::bgra:
        break;
    }
    fatalError("BGRA has no matrix");
}

void MatrixConversion::convertPacked(const ImageView& picture)
{
    const bool isUyvy = picture.format.packing == Packing::uyvy;
    const auto unpack = isUyvy ? libyuv::UYVYToI422 : libyuv::YUY2ToI422;
    const auto pack = isUyvy ? libyuv::I422ToUYVY : libyuv::I422ToYUY2;
    // Whole pairs: what lies behind an odd row's last pixel may be anything.
    const std::size_t chromaWidth = blue_.size();
    const int width = static_cast<int>(chromaWidth * 2);
    for (std::uint32_t y = 0; y < picture.format.height; ++y) {
        std::uint8_t* const row = picture.row(0, y);
        unpack(row, width * 2, luma_.data(), width, blue_.data(), width / 2, red_.data(), width / 2, width,
               1);
        convertChroma(blue_.data(), red_.data(), chromaWidth);
        convertLuma(luma_.data(), chromaWidth * 2);
        pack(luma_.data(), width, blue_.data(), width / 2, red_.data(), width / 2, row, width * 2, width, 1);
    }
}

void MatrixConversion::convertHalved(const ImageView& picture)
{
    const auto& [packing, width, height] = picture.format;
    const bool isSplit = packing == Packing::i420;
    const std::size_t chromaWidth = blue_.size();
    const int samples = static_cast<int>(chromaWidth);
    for (std::uint32_t y = 0; y < height; y += 2) {
        std::uint8_t* const chroma = picture.row(1, y / 2);
        std::uint8_t* const blue = isSplit ? chroma : blue_.data();
        std::uint8_t* const red = isSplit ? picture.row(2, y / 2) : red_.data();
        if (!isSplit) libyuv::SplitUVPlane(chroma, samples * 2, blue, samples, red, samples, samples, 1);
        convertChroma(blue, red, chromaWidth);
        if (!isSplit) libyuv::MergeUVPlane(blue, samples, red, samples, chroma, samples * 2, samples, 1);
        convertLuma(picture.row(0, y), width);
        if (y + 1 < height) convertLuma(picture.row(0, y + 1), width);
    }
}

void MatrixConversion::convertChroma(std::uint8_t* blue, std::uint8_t* red, std::size_t width)
{
    const Factors factors = factors_;
    std::int16_t* const sampleChange = sampleChange_.data();
    for (std::size_t x = 0; x < width; ++x) {
        const std::int16_t b = scaled(blue[x]), r = scaled(red[x]);
        sampleChange[x] = change(b, factors.lumaOfBlue, r, factors.lumaOfRed);
        blue[x] = changed(blue[x], change(b, factors.blueOfBlue, r, factors.blueOfRed));
        red[x] = changed(red[x], change(b, factors.redOfBlue, r, factors.redOfRed));
    }
    std::int16_t* const pixelChange = pixelChange_.data();
    for (std::size_t x = 0; x < width; ++x)
        pixelChange[2 * x] = pixelChange[2 * x + 1] = sampleChange[x];
}

void MatrixConversion::convertLuma(std::uint8_t* luma, std::size_t width) const
{
    const std::int16_t* const pixelChange = pixelChange_.data();
    for (std::size_t x = 0; x < width; ++x)
        luma[x] = changed(luma[x], pixelChange[x]);
}

}  // namespace pavo::tools
