#include "Tools/TestPattern.h"

#include "Platform/Support/Fatal.h"

#include <algorithm>
#include <array>

namespace pavo::tools {
namespace {

struct Colour {
    std::uint8_t y, u, v;
};

constexpr Colour kBlack{16, 128, 128};
constexpr Colour kWhite{235, 128, 128};
// Bars of 75 %, BT.601: white, yellow, cyan, green, magenta, red, blue.
constexpr std::array<Colour, 7> kBars = {{{180, 128, 128},
                                          {162, 44, 142},
                                          {131, 156, 44},
                                          {112, 72, 58},
                                          {84, 184, 198},
                                          {65, 100, 212},
                                          {35, 212, 114}}};

struct Box {
    double left, top, right, bottom;  // in parts of the picture
};

constexpr Box kDigitPanel{0.14, 0.24, 0.86, 0.62};
constexpr Box kSizePanel{0.02, 0.03, 0.30, 0.13};
constexpr Box kBarLane{0.0, 0.66, 1.0, 0.80};
constexpr Box kCode{0.06, 0.84, 0.94, 0.97};
constexpr double kMovingBarWidth = 0.03;
constexpr std::uint32_t kFramesPerSweep = 120;
constexpr std::uint32_t kCounterDigits = 6;

// The code: two cells that are always white and black, the counter's bits, a check sum, two cells black and
// white.
constexpr std::size_t kCounterBits = 24, kCheckBits = 4;
constexpr std::size_t kCellCount = 2 + kCounterBits + kCheckBits + 2;
using Cells = std::array<bool, kCellCount>;

Cells cellsOf(std::uint32_t counter)
{
    std::uint32_t check = 0x5;
    for (std::uint32_t rest = counter; rest != 0; rest >>= 4)
        check ^= rest & 0xF;
    Cells cells{};
    std::size_t next = 0;
    cells[next++] = true;
    cells[next++] = false;
    for (std::size_t bit = kCounterBits; bit-- > 0;)
        cells[next++] = (counter >> bit) & 1;
    for (std::size_t bit = kCheckBits; bit-- > 0;)
        cells[next++] = (check >> bit) & 1;
    cells[next++] = false;
    cells[next++] = true;
    return cells;
}

std::uint32_t scale(double part, std::uint32_t side)
{
    return std::min(side, static_cast<std::uint32_t>(std::max(0.0, part * side + 0.5)));
}

// Fills whole pixel pairs: UYVY has one colour for two.
void fill(const ImageView& image, const Box& box, const Colour& colour)
{
    const std::uint32_t width = image.format.width, height = image.format.height;
    const std::uint32_t left = scale(box.left, width) / 2, right = (scale(box.right, width) + 1) / 2;
    for (std::uint32_t y = scale(box.top, height); y < scale(box.bottom, height); ++y) {
        std::uint8_t* pair = image.row(0, y) + std::size_t{left} * 4;
        for (std::uint32_t x = left; x < right; ++x, pair += 4) {
            pair[0] = colour.u;
            pair[1] = colour.y;
            pair[2] = colour.v;
            pair[3] = colour.y;
        }
    }
}

// A number as on a pocket calculator.
void drawNumber(const ImageView& image, const Box& panel, std::uint32_t number, std::uint32_t digits)
{
    //   bit 0 top, 1 right above, 2 right below, 3 bottom, 4 left below, 5 left above, 6 middle
    constexpr std::array<unsigned, 10> kSegments = {0x3F, 0x06, 0x5B, 0x4F, 0x66,
                                                    0x6D, 0x7D, 0x07, 0x7F, 0x6F};
    const double step = (panel.right - panel.left) / digits, height = panel.bottom - panel.top;
    const double thickX = step * 0.16, thickY = height * 0.11;
    for (std::uint32_t digit = digits; digit-- > 0; number /= 10) {
        const double left = panel.left + digit * step + step * 0.14, right = left + step * 0.72;
        const double top = panel.top + height * 0.1, bottom = panel.bottom - height * 0.1;
        const double middle = (top + bottom) / 2;
        const std::array<Box, 7> segments = {{{left, top, right, top + thickY},
                                              {right - thickX, top, right, middle},
                                              {right - thickX, middle, right, bottom},
                                              {left, bottom - thickY, right, bottom},
                                              {left, middle, left + thickX, bottom},
                                              {left, top, left + thickX, middle},
                                              {left, middle - thickY / 2, right, middle + thickY / 2}}};
        for (std::size_t segment = 0; segment < segments.size(); ++segment)
            if ((kSegments[number % 10] >> segment) & 1) fill(image, segments[segment], kWhite);
    }
}

// One of the two numbers in the size panel, without leading zeros, up to `right`.
void drawSide(const ImageView& image, double right, std::uint32_t side)
{
    constexpr double kDigitWidth = (kSizePanel.right - kSizePanel.left) / 10;
    std::uint32_t digits = 1;
    for (std::uint32_t rest = side / 10; rest != 0; rest /= 10)
        ++digits;
    drawNumber(image, {right - digits * kDigitWidth, kSizePanel.top, right, kSizePanel.bottom}, side, digits);
}

}  // namespace

TestPattern::TestPattern(std::uint32_t width, std::uint32_t height)
    : background_({Packing::uyvy, width, height})
{
    const ImageView image = background_.view();
    for (std::size_t bar = 0; bar < kBars.size(); ++bar) {
        const double left = static_cast<double>(bar) / kBars.size();
        fill(image, {left, 0, left + 1.0 / kBars.size(), 1}, kBars[bar]);
    }
    fill(image, kSizePanel, kBlack);
    const double middle = (kSizePanel.left + kSizePanel.right) / 2;
    drawSide(image, middle, width);
    drawSide(image, kSizePanel.right, height);
    fill(image, kDigitPanel, kBlack);
    fill(image, kBarLane, kBlack);
    // White around the code keeps its outer cells clear of the bars.
    fill(image, {kCode.left - 0.03, kCode.top - 0.02, kCode.right + 0.03, kCode.bottom + 0.02}, kWhite);
}

void TestPattern::draw(std::uint32_t counter, const ImageView& into)
{
    copyImage(background_.view(), into);
    drawNumber(into, kDigitPanel, counter, kCounterDigits);

    const double position = static_cast<double>(counter % kFramesPerSweep) / kFramesPerSweep;
    fill(into, {position, kBarLane.top, position + kMovingBarWidth, kBarLane.bottom}, kWhite);

    const Cells cells = cellsOf(counter & kLargestCounter);
    const double cellWidth = (kCode.right - kCode.left) / kCellCount;
    for (std::size_t cell = 0; cell < kCellCount; ++cell) {
        const double left = kCode.left + static_cast<double>(cell) * cellWidth;
        fill(into, {left, kCode.top, left + cellWidth, kCode.bottom}, cells[cell] ? kWhite : kBlack);
    }
}

std::optional<std::uint32_t> readCounter(std::uint32_t width, std::uint32_t height, const LumaReader& luma)
{
    if (width < kCellCount || height < 8) return std::nullopt;
    constexpr int kDark = 90, kBright = 160;
    const double cellWidth = (kCode.right - kCode.left) / kCellCount;
    const double middle = (kCode.top + kCode.bottom) / 2;
    Cells cells{};
    for (std::size_t cell = 0; cell < kCellCount; ++cell) {
        // The middle of a cell, at three heights: its edges may be blurred.
        const double centre = kCode.left + (static_cast<double>(cell) + 0.5) * cellWidth;
        int sum = 0;
        for (const double offset : {-0.02, 0.0, 0.02})
            sum += luma(std::min(width - 1, static_cast<std::uint32_t>(centre * width)),
                        std::min(height - 1, static_cast<std::uint32_t>((middle + offset) * height)));
        const int brightness = sum / 3;
        if (brightness > kDark && brightness < kBright) return std::nullopt;
        cells[cell] = brightness >= kBright;
    }
    std::uint32_t counter = 0;
    for (std::size_t bit = 0; bit < kCounterBits; ++bit)
        counter = counter << 1 | static_cast<std::uint32_t>(cells[2 + bit]);
    if (cells != cellsOf(counter)) return std::nullopt;
    return counter;
}

}  // namespace pavo::tools
