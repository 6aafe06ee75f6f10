#include "Tests/Clients/ClientPicture.h"

#include "Tools/PngFile.h"
#include "Tools/TestPattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>

namespace pavo::test {

namespace {

using Rgb = std::array<int, 3>;

// Bars of 75 %: white, yellow, cyan, green, magenta, red, blue.
constexpr std::array<Rgb, 7> kBars = {
    {{191, 191, 191}, {191, 191, 0}, {0, 191, 191}, {0, 191, 0}, {191, 0, 191}, {191, 0, 0}, {0, 0, 191}}};
// Where nothing covers the bars, in parts of the height.
constexpr double kBarHeight = 0.185;

// Pictures of different sizes are compared by the mean colours of so many tiles.
constexpr std::uint32_t kTilesAcross = 32, kTilesDown = 18;
// Not every pixel: sanitizers make it slow, and clients are watched picture by picture.
constexpr std::uint32_t kPixelStep = 2;
// Mean distance of all tiles. A client's colours are off by 1 or 2 after their way through YUV.
constexpr double kSame = 4;

Rgb pixel(const ClientPicture& picture, std::uint32_t x, std::uint32_t y)
{
    const std::uint8_t* const from = picture.rgb.data() + (std::size_t{y} * picture.width + x) * 3;
    return {from[0], from[1], from[2]};
}

std::vector<double> tilesOf(const ClientPicture& picture)
{
    std::vector<double> tiles;
    for (std::uint32_t tile = 0; tile < kTilesAcross * kTilesDown; ++tile) {
        const std::uint32_t column = tile % kTilesAcross, row = tile / kTilesAcross;
        const std::uint32_t left = picture.width * column / kTilesAcross;
        const std::uint32_t right = picture.width * (column + 1) / kTilesAcross;
        const std::uint32_t top = picture.height * row / kTilesDown;
        const std::uint32_t bottom = picture.height * (row + 1) / kTilesDown;
        std::array<double, 3> sum{};
        std::uint32_t pixels = 0;
        for (std::uint32_t y = top; y < bottom; y += kPixelStep)
            for (std::uint32_t x = left; x < right; x += kPixelStep, ++pixels) {
                const Rgb colour = pixel(picture, x, y);
                for (std::size_t channel = 0; channel < 3; ++channel)
                    sum[channel] += colour[channel];
            }
        for (const double channel : sum)
            tiles.push_back(channel / std::max(1U, pixels));
    }
    return tiles;
}

const std::vector<double>& placeholderTiles()
{
    static const std::vector<double> tiles = [] {
        const auto picture = readPicture(PAVO_PLACEHOLDER);
        return picture ? tilesOf(*picture) : std::vector<double>();
    }();
    return tiles;
}

}  // namespace

std::optional<ClientPicture> readPicture(const std::string& pngPath)
{
    const auto read = tools::readPng(pngPath);
    if (!read) return std::nullopt;
    const auto& format = read.value().format();
    const auto& bgra = read.value().bytes();
    ClientPicture picture{format.width, format.height, {}};
    picture.rgb.reserve(bgra.size() / 4 * 3);
    for (std::size_t at = 0; at + 3 < bgra.size(); at += 4)
        picture.rgb.insert(picture.rgb.end(), {bgra[at + 2], bgra[at + 1], bgra[at]});
    return picture;
}

void keepPicture(const ClientPicture& picture, const std::string& name)
{
    const char* wanted = std::getenv("PAVO_CLIENT_PICTURES");
    const std::filesystem::path folder(wanted && *wanted ? wanted : PAVO_CLIENT_PICTURES_DEFAULT);
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    const auto problem =
        tools::writePng((folder / (name + ".png")).string(), picture.width, picture.height, picture.rgb);
    if (problem) ADD_FAILURE() << problem->text;
}

std::optional<std::uint32_t> counterOf(const ClientPicture& picture)
{
    if (picture.rgb.empty()) return std::nullopt;
    return tools::readCounter(picture.width, picture.height, [&picture](std::uint32_t x, std::uint32_t y) {
        return pixel(picture, x, y)[1];
    });
}

int worstBarError(const ClientPicture& picture)
{
    if (picture.rgb.empty()) return 255;
    int worst = 0;
    for (std::size_t bar = 0; bar < kBars.size(); ++bar) {
        const double middle = (static_cast<double>(bar) + 0.5) / kBars.size();
        const Rgb colour = pixel(picture, static_cast<std::uint32_t>(middle * picture.width),
                                 static_cast<std::uint32_t>(kBarHeight * picture.height));
        for (std::size_t channel = 0; channel < 3; ++channel)
            worst = std::max(worst, std::abs(colour[channel] - kBars[bar][channel]));
    }
    return worst;
}

bool isPlaceholder(const ClientPicture& picture)
{
    if (picture.rgb.empty()) return false;
    const std::vector<double> tiles = tilesOf(picture);
    const std::vector<double>& expected = placeholderTiles();
    if (tiles.size() != expected.size()) return false;
    double sum = 0;
    for (std::size_t tile = 0; tile < tiles.size(); ++tile)
        sum += std::abs(tiles[tile] - expected[tile]);
    return sum / static_cast<double>(tiles.size()) < kSame;
}

}  // namespace pavo::test
