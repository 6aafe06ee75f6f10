#include "Tools/MatrixConversion.h"

#include "Tests/Tools/ToolsTestSupport.h"
#include "Tools/ConvertedSource.h"
#include "Tools/Y4MSource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

namespace pavo::tools {
namespace {

struct Yuv {
    int y, u, v;
};

// By way of RGB, as the standards describe it, without any rounding between.
Yuv exactly(const Yuv& yuv, Matrix from, Matrix to)
{
    struct Weights {
        double red, green, blue;
    };
    const auto weightsOf = [](Matrix matrix) {
        return matrix == Matrix::bt601 ? Weights{0.299, 0.587, 0.114} : Weights{0.2126, 0.7152, 0.0722};
    };
    const Weights source = weightsOf(from), target = weightsOf(to);
    const double luma = (yuv.y - 16) / 219.0;
    const double red = luma + 2 * (1 - source.red) * (yuv.v - 128) / 224.0;
    const double blue = luma + 2 * (1 - source.blue) * (yuv.u - 128) / 224.0;
    const double green = (luma - source.red * red - source.blue * blue) / source.green;
    const double other = target.red * red + target.green * green + target.blue * blue;
    const auto limited = [](double value) {
        return static_cast<int>(std::lround(std::clamp(value, 0.0, 255.0)));
    };
    return {limited(16 + 219 * other), limited(128 + 224 * (blue - other) / (2 * (1 - target.blue))),
            limited(128 + 224 * (red - other) / (2 * (1 - target.red)))};
}

// Where the values of a pixel lie.
struct Places {
    std::uint8_t *y, *u, *v;
};

Places placesIn(const ImageView& picture, std::uint32_t x, std::uint32_t y)
{
    const std::size_t pair = x / 2;
    switch (picture.format.packing) {
    case Packing::uyvy:
        return {picture.row(0, y) + x * std::size_t{2} + 1, picture.row(0, y) + pair * 4,
                picture.row(0, y) + pair * 4 + 2};
    case Packing::yuy2:
        return {picture.row(0, y) + x * std::size_t{2}, picture.row(0, y) + pair * 4 + 1,
                picture.row(0, y) + pair * 4 + 3};
    case Packing::nv12:
        return {picture.row(0, y) + x, picture.row(1, y / 2) + pair * 2,
                picture.row(1, y / 2) + pair * 2 + 1};
    default:
        return {picture.row(0, y) + x, picture.row(1, y / 2) + pair, picture.row(2, y / 2) + pair};
    }
}

class EveryPacking : public testing::TestWithParam<Packing> {
protected:
    void SetUp() override
    {
        // Every pixel of a block has another luma, every block another chroma.
        forEachPixel([](std::uint32_t x, std::uint32_t y, const Places& places) {
            *places.y = static_cast<std::uint8_t>(16 + (x * 37 + y * 11) % 220);
            *places.u = static_cast<std::uint8_t>(16 + (x / 2 * 29 + y / 2 * 7) % 225);
            *places.v = static_cast<std::uint8_t>(16 + (x / 2 * 13 + y / 2 * 53) % 225);
        });
    }
    template <typename Visit>
    void forEachPixel(Visit visit)
    {
        for (std::uint32_t y = 0; y < kHeight; ++y)
            for (std::uint32_t x = 0; x < kWidth; ++x)
                visit(x, y, placesIn(image_.view(), x, y));
    }
    std::vector<Yuv> pixels()
    {
        std::vector<Yuv> pixels;
        forEachPixel([&pixels](std::uint32_t, std::uint32_t, const Places& places) {
            pixels.push_back({*places.y, *places.u, *places.v});
        });
        return pixels;
    }

    void expectWithinOneStep(Matrix from, Matrix to)
    {
        const auto before = pixels();
        MatrixConversion(from, to).convert(image_.view());
        const auto after = pixels();
        for (std::size_t i = 0; i < before.size(); ++i) {
            const Yuv expected = exactly(before[i], from, to);
            ASSERT_NEAR(after[i].y, expected.y, 1) << i;
            ASSERT_NEAR(after[i].u, expected.u, 1) << i;
            ASSERT_NEAR(after[i].v, expected.v, 1) << i;
        }
    }

    static constexpr std::uint32_t kWidth = 101, kHeight = 37;
    PaddedImage image_{{GetParam(), kWidth, kHeight}};
};

TEST_P(EveryPacking, IsWithinOneStepOfTheExactValues)
{
    expectWithinOneStep(Matrix::bt709, Matrix::bt601);
    EXPECT_TRUE(image_.isPaddingUntouched());
}

TEST_P(EveryPacking, GoesTheOtherWayToo)
{
    expectWithinOneStep(Matrix::bt601, Matrix::bt709);
}

TEST_P(EveryPacking, LeavesGreysAsTheyAre)
{
    forEachPixel([](std::uint32_t, std::uint32_t, const Places& places) { *places.u = *places.v = 128; });
    const std::string before = image_.pixels();
    MatrixConversion(Matrix::bt709, Matrix::bt601).convert(image_.view());
    EXPECT_EQ(image_.pixels(), before);
}

INSTANTIATE_TEST_SUITE_P(MatrixConversion, EveryPacking,
                         testing::Values(Packing::uyvy, Packing::yuy2, Packing::nv12, Packing::i420),
                         [](const auto& packing) { return std::string(nameOf(packing.param)); });

TEST(MatrixConversion, ServesPicturesOfOtherSizesAfterOneAnother)
{
    MatrixConversion conversion(Matrix::bt709, Matrix::bt601);
    for (const std::uint32_t side : {1U, 64U, 2U, 33U}) {
        Image image({Packing::i420, side, side},
                    std::vector<std::uint8_t>(frameBytes({Packing::i420, side, side}), std::uint8_t{100}));
        conversion.convert(image.view());
        const Yuv expected = exactly({100, 100, 100}, Matrix::bt709, Matrix::bt601);
        EXPECT_NEAR(image.bytes().front(), expected.y, 1);
        EXPECT_NEAR(image.bytes()[std::size_t{side} * side - 1], expected.y, 1);
        EXPECT_NEAR(image.bytes().back(), expected.v, 1);
    }
}

TEST(MatrixConversionDeathTest, HasNothingToDoWithRgb)
{
    Image image({Packing::bgra, 2, 2});
    EXPECT_DEATH(MatrixConversion(Matrix::bt709, Matrix::bt601).convert(image.view()), "BGRA has no matrix");
}

TEST(Matrix, IsThatOfHdFrom720LinesOn)
{
    EXPECT_EQ(usualMatrix(576), Matrix::bt601);
    EXPECT_EQ(usualMatrix(719), Matrix::bt601);
    EXPECT_EQ(usualMatrix(720), Matrix::bt709);
    EXPECT_EQ(usualMatrix(2160), Matrix::bt709);
}

TEST(ConvertedSource, ConvertsFramesAndKeepsAllElseOfItsSource)
{
    const std::string frame("\x86\x86\x86\x86\x3f\x34", 6);  // the green of a bar
    const TestInput input("YUV4MPEG2 W2 H2 F25:1\nFRAME\nabcdefFRAME\n" + frame + "FRAME\nabc");
    auto source = Y4MSource::open(input.reader());
    ASSERT_TRUE(source);
    ConvertedSource converted(std::move(source.value()), Matrix::bt709);
    EXPECT_EQ(converted.format().packing, Packing::i420);
    EXPECT_EQ(converted.format().width, 2U);
    EXPECT_DOUBLE_EQ(converted.rate()->framesPerSecond(), 25);
    EXPECT_EQ(converted.skip().status, FrameStatus::ready);
    Image image(converted.format());
    ASSERT_EQ(converted.next(image.view()).status, FrameStatus::ready);
    const std::array expected = {112, 112, 112, 112, 72, 58};
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_NEAR(image.bytes()[i], expected[i], 1) << i;
    EXPECT_EQ(converted.next(image.view()).problem, "the input ends inside of frame 2: 3 of 6 bytes");
}

}  // namespace
}  // namespace pavo::tools
