#include "Tools/TestPattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

namespace pavo::tools {
namespace {

constexpr std::uint32_t kCounters[] = {0, 0x5A5A5A, 123456, kLargestCounter};

// The brightness of a picture, as a client may see it after what lies on the way.
struct Luma {
    std::uint32_t width;
    std::uint32_t height;
    std::vector<int> values;

    int& at(std::uint32_t x, std::uint32_t y) { return values[std::size_t{y} * width + x]; }
    int at(std::uint32_t x, std::uint32_t y) const { return values[std::size_t{y} * width + x]; }
    std::optional<std::uint32_t> counter() const
    {
        return readCounter(width, height, [this](std::uint32_t x, std::uint32_t y) { return at(x, y); });
    }
    template <typename Change>
    Luma changed(Change change) const
    {
        Luma result = *this;
        for (auto& value : result.values)
            value = std::clamp(static_cast<int>(std::lround(change(value))), 0, 255);
        return result;
    }
};

Luma patternOf(std::uint32_t counter, std::uint32_t width = 640, std::uint32_t height = 360)
{
    TestPattern pattern(width, height);
    Image image(pattern.format());
    pattern.draw(counter, image.view());
    Luma luma{width, height, std::vector<int>(std::size_t{width} * height)};
    for (std::uint32_t y = 0; y < height; ++y)
        for (std::uint32_t x = 0; x < width; ++x)
            luma.at(x, y) = image.view().row(0, y)[std::size_t{x} * 2 + 1];
    return luma;
}

// Each pixel the mean of those that it stands for; where it grows, the nearest one.
Luma scaled(const Luma& luma, std::uint32_t width, std::uint32_t height)
{
    Luma result{width, height, std::vector<int>(std::size_t{width} * height)};
    for (std::uint32_t y = 0; y < height; ++y)
        for (std::uint32_t x = 0; x < width; ++x) {
            const auto left = x * luma.width / width, top = y * luma.height / height;
            const auto right = std::max(left + 1, (x + 1) * luma.width / width);
            const auto bottom = std::max(top + 1, (y + 1) * luma.height / height);
            int sum = 0;
            for (auto row = top; row < bottom; ++row)
                for (auto column = left; column < right; ++column)
                    sum += luma.at(column, row);
            result.at(x, y) = sum / static_cast<int>((right - left) * (bottom - top));
        }
    return result;
}

// Each pixel the mean of its neighbours up to `radius`, one direction after the other.
Luma blurred(const Luma& luma, int radius)
{
    const auto pass = [radius](const Luma& from, int stepX, int stepY) {
        Luma to = from;
        const int width = static_cast<int>(from.width), height = static_cast<int>(from.height);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                int sum = 0;
                for (int i = -radius; i <= radius; ++i)
                    sum += from.at(static_cast<std::uint32_t>(std::clamp(x + i * stepX, 0, width - 1)),
                                   static_cast<std::uint32_t>(std::clamp(y + i * stepY, 0, height - 1)));
                to.at(static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y)) = sum / (2 * radius + 1);
            }
        return to;
    };
    return pass(pass(luma, 1, 0), 0, 1);
}

class TestPatternCounter : public testing::TestWithParam<std::uint32_t> {};

TEST_P(TestPatternCounter, IsReadBackAtAnySizeThatItIsDrawnAt)
{
    for (const auto& [width, height] :
         {std::pair{1280U, 720U}, {641U, 361U}, {160U, 120U}, {199U, 333U}, {1024U, 64U}})
        EXPECT_EQ(patternOf(GetParam(), width, height).counter(), GetParam()) << width << "x" << height;
}

TEST_P(TestPatternCounter, SurvivesScaling)
{
    const auto pattern = patternOf(GetParam());
    for (const auto& [width, height] :
         {std::pair{1280U, 720U}, {1024U, 576U}, {640U, 480U}, {321U, 181U}, {160U, 90U}})
        EXPECT_EQ(scaled(pattern, width, height).counter(), GetParam()) << width << "x" << height;
}

TEST_P(TestPatternCounter, SurvivesBlurAndNoise)
{
    std::minstd_rand random(GetParam() + 1);
    std::uniform_int_distribution noise(-40, 40);
    const auto pattern = blurred(patternOf(GetParam()), 3);
    EXPECT_EQ(pattern.counter(), GetParam());
    EXPECT_EQ(pattern.changed([&](int value) { return value + noise(random); }).counter(), GetParam());
}

TEST_P(TestPatternCounter, SurvivesOtherRangesOfBrightness)
{
    const auto pattern = patternOf(GetParam());
    EXPECT_EQ(pattern.changed([](int value) { return (value - 16) * 255.0 / 219; }).counter(), GetParam());
    EXPECT_EQ(pattern.changed([](int value) { return 16 + value * 219.0 / 255; }).counter(), GetParam());
    EXPECT_EQ(pattern.changed([](int value) { return value * 0.8; }).counter(), GetParam());
    EXPECT_EQ(pattern.changed([](int value) { return 255 * std::pow(value / 255.0, 0.8); }).counter(),
              GetParam());
}

INSTANTIATE_TEST_SUITE_P(Counters, TestPatternCounter, testing::ValuesIn(kCounters));

TEST(TestPattern, ShowsOneCounterForEachFrame)
{
    TestPattern pattern(320, 180);
    Image image(pattern.format());
    for (std::uint32_t counter = 0; counter < 500; ++counter) {
        pattern.draw(counter, image.view());
        const auto read = readCounter(320, 180, [&image](std::uint32_t x, std::uint32_t y) {
            return image.bytes()[(std::size_t{y} * 320 + x) * 2 + 1];
        });
        ASSERT_EQ(read, counter);
    }
}

TEST(TestPattern, HasBarsOf75PercentInTheCamerasColours)
{
    TestPattern pattern(700, 100);
    Image image(pattern.format());
    pattern.draw(0, image.view());
    const std::array<std::array<double, 3>, 7> bars = {
        {{1, 1, 1}, {1, 1, 0}, {0, 1, 1}, {0, 1, 0}, {1, 0, 1}, {1, 0, 0}, {0, 0, 1}}};
    for (std::size_t bar = 0; bar < bars.size(); ++bar) {
        const auto& [red, green, blue] = bars[bar];
        const double luma = 0.299 * red + 0.587 * green + 0.114 * blue;
        const auto* const pair = image.view().row(0, 18) + bar * 200 + 100;
        EXPECT_EQ(pair[0], std::lround(128 + 224 * 0.75 * (blue - luma) / 1.772)) << bar;
        EXPECT_EQ(pair[1], std::lround(16 + 219 * 0.75 * luma)) << bar;
        EXPECT_EQ(pair[2], std::lround(128 + 224 * 0.75 * (red - luma) / 1.402)) << bar;
    }
}

TEST(TestPattern, MovesItsBar)
{
    const auto first = patternOf(0), second = patternOf(30);
    const std::uint32_t lane = 360 * 73 / 100;
    EXPECT_GT(first.at(4, lane), 200);
    EXPECT_LT(second.at(4, lane), 50);
    EXPECT_GT(second.at(640 / 4 + 4, lane), 200);
}

TEST(TestPattern, CounterWithAWrongCellIsNone)
{
    const auto pattern = patternOf(0x123456);
    constexpr int kCells = 32;
    constexpr double kFirst = 0.06 * 640, kWidth = 0.88 * 640 / kCells;
    for (int cell = 0; cell < kCells; ++cell) {
        auto wrong = pattern;
        const auto begin = static_cast<std::uint32_t>(std::lround(kFirst + cell * kWidth));
        const auto end = static_cast<std::uint32_t>(std::lround(kFirst + (cell + 1) * kWidth));
        for (auto y = 360U * 84 / 100; y < 360U * 97 / 100; ++y)
            for (auto x = begin; x < end; ++x)
                wrong.at(x, y) = 251 - wrong.at(x, y);
        EXPECT_EQ(wrong.counter(), std::nullopt) << cell;
    }
}

TEST(TestPattern, OtherPicturesHaveNoCounter)
{
    for (const int grey : {0, 16, 128, 235, 255})
        EXPECT_EQ((Luma{640, 360, std::vector<int>(640 * 360, grey)}.counter()), std::nullopt);
    std::minstd_rand random(7);
    std::uniform_int_distribution noise(0, 255);
    for (int i = 0; i < 10; ++i) {
        Luma picture{320, 180, std::vector<int>(320 * 180)};
        for (auto& value : picture.values)
            value = noise(random);
        EXPECT_EQ(picture.counter(), std::nullopt);
    }
}

TEST(TestPattern, PartOfThePatternHasNoCounter)
{
    const auto pattern = patternOf(0x0F0F0F);
    Luma half{320, 360, {}};
    for (std::uint32_t y = 0; y < 360; ++y)
        for (std::uint32_t x = 0; x < 320; ++x)
            half.values.push_back(pattern.at(x, y));
    EXPECT_EQ(half.counter(), std::nullopt);
}

TEST(TestPattern, PictureThatIsTooSmallHasNoCounter)
{
    const auto white = [](std::uint32_t, std::uint32_t) { return 255; };
    EXPECT_EQ(readCounter(31, 100, white), std::nullopt);
    EXPECT_EQ(readCounter(100, 7, white), std::nullopt);
    EXPECT_EQ(readCounter(0, 0, white), std::nullopt);
}

TEST(TestPattern, IsDrawnAtTheSmallestSizes)
{
    for (const auto& [width, height] : {std::pair{1U, 1U}, {2U, 1U}, {1U, 2U}, {3U, 3U}, {17U, 5U}}) {
        TestPattern pattern(width, height);
        Image image(pattern.format());
        pattern.draw(kLargestCounter, image.view());
        EXPECT_EQ(image.bytes().size(), std::size_t{(width + 1) / 2} * 4 * height);
    }
}

TEST(TestPatternDeathTest, IsDrawnIntoItsOwnFormatOnly)
{
    TestPattern pattern(4, 4);
    Image other({Packing::yuy2, 4, 4});
    EXPECT_DEATH(pattern.draw(0, other.view()), "different formats");
}

}  // namespace
}  // namespace pavo::tools
