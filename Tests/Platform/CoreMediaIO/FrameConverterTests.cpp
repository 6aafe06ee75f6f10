#include "Platform/CoreMediaIO/linux/FrameConverter.h"
#include "Tests/Platform/CoreMediaIO/Pictures.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

namespace cmio {
namespace {

using test::fillRectangle;
using test::makePicture;
using test::Rgb;

constexpr Rgb kBlack{0, 0, 0};
constexpr Rgb kWhite{255, 255, 255};
constexpr Rgb kColors[] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 255}, {0, 0, 0}, {200, 90, 30}};

// What follows the picture in memory, to see that nothing is written there.
constexpr std::uint8_t kGuard = 0xa5;
constexpr std::size_t kGuardSize = 64;

std::string nameOf(OSType format)
{
    const char letters[] = {static_cast<char>(format >> 24), static_cast<char>(format >> 16),
                            static_cast<char>(format >> 8), static_cast<char>(format)};
    std::string name(letters, 4);
    if (name == "2vuy") name = "uyvy";
    return name;
}

std::string nameOf(VideoFormat format)
{
    return format == VideoFormat::nv12 ? "Nv12" : "Yuy2";
}

// The pixel of a drawn picture, as its client reads it.
test::YCbCr yuvAt(const VideoLayout& layout, const std::vector<std::uint8_t>& pixels, int x, int y)
{
    const std::uint8_t* row = pixels.data() + static_cast<std::ptrdiff_t>(y) * layout.stride();
    const int pair = x / 2 * 4;
    if (layout.format == VideoFormat::yuy2) return {row[x * 2], row[pair + 1], row[pair + 3]};
    const std::uint8_t* chroma = pixels.data() + layout.lumaSize() +
                                 static_cast<std::ptrdiff_t>(y / 2) * layout.chromaWidth() * 2 + x / 2 * 2;
    return {row[x], chroma[0], chroma[1]};
}

testing::AssertionResult shows(const VideoLayout& layout, const std::vector<std::uint8_t>& pixels, int x,
                               int y, Rgb color)
{
    int worst = 0;
    const auto compare = [&worst](int expected, int actual) {
        worst = std::max(worst, std::abs(expected - actual));
    };
    const auto actual = yuvAt(layout, pixels, x, y);
    const auto expected = test::toVideoRange(color);
    compare(expected.y, actual.y);
    compare(expected.cb, actual.cb);
    compare(expected.cr, actual.cr);
    constexpr int kTolerance = 2;
    if (worst <= kTolerance) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "pixel " << x << "," << y << " is off by " << worst
                                       << " for colour " << color.r << "," << color.g << "," << color.b;
}

std::vector<std::uint8_t> draw(FrameConverter& converter, const cf::Ref<CVPixelBufferRef>& picture,
                               const VideoLayout& layout)
{
    const PictureReader reader(picture);
    EXPECT_TRUE(reader.isValid());
    std::vector<std::uint8_t> pixels(layout.size() + kGuardSize, kGuard);
    if (reader.isValid()) converter.convert(reader, layout, pixels.data());
    for (std::size_t index = layout.size(); index < pixels.size(); ++index)
        EXPECT_EQ(pixels[index], kGuard) << "written behind the picture";
    return pixels;
}

constexpr OSType kSources[] = {kCVPixelFormatType_422YpCbCr8,
                               kCVPixelFormatType_422YpCbCr8_yuvs,
                               kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange,
                               kCVPixelFormatType_420YpCbCr8BiPlanarFullRange,
                               kCVPixelFormatType_420YpCbCr8Planar,
                               kCVPixelFormatType_32BGRA};

class EverySourceAndTarget : public testing::TestWithParam<std::tuple<OSType, VideoFormat>> {
protected:
    OSType source() const { return std::get<0>(GetParam()); }
    VideoLayout target(int width, int height) const { return {std::get<1>(GetParam()), width, height}; }

    FrameConverter converter_;
};

TEST_P(EverySourceAndTarget, KeepsColoursInTheSameSize)
{
    const VideoLayout layout = target(64, 36);
    for (const Rgb& color : kColors) {
        const auto pixels = draw(converter_, makePicture(source(), 64, 36, color), layout);
        EXPECT_TRUE(shows(layout, pixels, 0, 0, color));
        EXPECT_TRUE(shows(layout, pixels, 33, 17, color));
        EXPECT_TRUE(shows(layout, pixels, 63, 35, color));
    }
}

TEST_P(EverySourceAndTarget, KeepsPlacesInTheSameSize)
{
    const VideoLayout layout = target(64, 36);
    const auto picture = makePicture(source(), 64, 36, kBlack);
    fillRectangle(picture.get(), 16, 8, 8, 4, kColors[0]);
    const auto pixels = draw(converter_, picture, layout);
    EXPECT_TRUE(shows(layout, pixels, 16, 8, kColors[0]));
    EXPECT_TRUE(shows(layout, pixels, 23, 11, kColors[0]));
    EXPECT_TRUE(shows(layout, pixels, 14, 8, kBlack));
    EXPECT_TRUE(shows(layout, pixels, 24, 11, kBlack));
    EXPECT_TRUE(shows(layout, pixels, 18, 6, kBlack));
    EXPECT_TRUE(shows(layout, pixels, 18, 12, kBlack));
}

TEST_P(EverySourceAndTarget, TakesOddSizes)
{
    const VideoLayout layout = target(63, 35);
    for (const Rgb& color : kColors) {
        const auto pixels = draw(converter_, makePicture(source(), 63, 35, color), layout);
        EXPECT_TRUE(shows(layout, pixels, 0, 0, color));
        EXPECT_TRUE(shows(layout, pixels, 62, 34, color));
    }
}

TEST_P(EverySourceAndTarget, ScalesUpAndDown)
{
    const VideoLayout layout = target(64, 36);
    for (const Rgb& color : kColors) {
        for (const int factor : {1, 4}) {
            const auto pixels =
                draw(converter_, makePicture(source(), 32 * factor, 18 * factor, color), layout);
            EXPECT_TRUE(shows(layout, pixels, 0, 0, color));
            EXPECT_TRUE(shows(layout, pixels, 63, 35, color));
        }
    }
}

TEST_P(EverySourceAndTarget, PutsBlackBesideANarrowPicture)
{
    const VideoLayout layout = target(64, 36);
    // 4:3 makes 48 x 36, from column 8 on.
    const auto pixels = draw(converter_, makePicture(source(), 80, 60, kWhite), layout);
    for (const int row : {0, 17, 35}) {
        EXPECT_TRUE(shows(layout, pixels, 0, row, kBlack));
        EXPECT_TRUE(shows(layout, pixels, 7, row, kBlack));
        EXPECT_TRUE(shows(layout, pixels, 8, row, kWhite));
        EXPECT_TRUE(shows(layout, pixels, 55, row, kWhite));
        EXPECT_TRUE(shows(layout, pixels, 56, row, kBlack));
        EXPECT_TRUE(shows(layout, pixels, 63, row, kBlack));
    }
}

TEST_P(EverySourceAndTarget, PutsBlackAboveAndBelowAWidePicture)
{
    const VideoLayout layout = target(64, 48);
    // 2:1 makes 64 x 32, from row 8 on.
    const auto pixels = draw(converter_, makePicture(source(), 100, 50, kColors[2]), layout);
    for (const int column : {0, 31, 63}) {
        EXPECT_TRUE(shows(layout, pixels, column, 7, kBlack));
        EXPECT_TRUE(shows(layout, pixels, column, 8, kColors[2]));
        EXPECT_TRUE(shows(layout, pixels, column, 39, kColors[2]));
        EXPECT_TRUE(shows(layout, pixels, column, 40, kBlack));
    }
}

TEST_P(EverySourceAndTarget, ScalesOddSizes)
{
    const VideoLayout layout = target(63, 35);
    const auto pixels = draw(converter_, makePicture(source(), 33, 33, kWhite), layout);
    EXPECT_TRUE(shows(layout, pixels, 31, 0, kWhite));
    EXPECT_TRUE(shows(layout, pixels, 31, 34, kWhite));
    EXPECT_TRUE(shows(layout, pixels, 0, 17, kBlack));
    EXPECT_TRUE(shows(layout, pixels, 62, 17, kBlack));
}

TEST_P(EverySourceAndTarget, FitsAPictureOfOnePixel)
{
    const VideoLayout layout = target(64, 36);
    const auto pixels = draw(converter_, makePicture(source(), 1, 1, kColors[5]), layout);
    EXPECT_TRUE(shows(layout, pixels, 32, 18, kColors[5]));
    EXPECT_TRUE(shows(layout, pixels, 0, 18, kBlack));
}

TEST_P(EverySourceAndTarget, LeavesNoTraceOfTheLastPicture)
{
    const VideoLayout layout = target(64, 36);
    draw(converter_, makePicture(source(), 128, 72, kWhite), layout);
    const auto pixels = draw(converter_, makePicture(source(), 30, 90, kWhite), layout);
    EXPECT_TRUE(shows(layout, pixels, 0, 0, kBlack));
    EXPECT_TRUE(shows(layout, pixels, 32, 18, kWhite));
}

INSTANTIATE_TEST_SUITE_P(FrameConverter, EverySourceAndTarget,
                         testing::Combine(testing::ValuesIn(kSources), testing::ValuesIn(kOfferedFormats)),
                         [](const auto& instance) {
                             return nameOf(std::get<0>(instance.param)) + "To" +
                                    nameOf(std::get<1>(instance.param));
                         });

TEST(FrameConverter, KeepsEveryValueBetweenFormatsOfOneSampling)
{
    FrameConverter converter;
    const auto drawBytes = [&converter](OSType format) {
        const auto picture = makePicture(format, 256, 2, kBlack);
        CVPixelBufferLockBaseAddress(picture.get(), 0);
        auto* bytes = static_cast<std::uint8_t*>(CVPixelBufferGetBaseAddress(picture.get()));
        for (int index = 0; index < 512; ++index)
            bytes[index] = static_cast<std::uint8_t>(index * 7);
        CVPixelBufferUnlockBaseAddress(picture.get(), 0);
        return draw(converter, picture, {VideoFormat::yuy2, 256, 2});
    };
    const auto same = drawBytes(kCVPixelFormatType_422YpCbCr8_yuvs);
    const auto swapped = drawBytes(kCVPixelFormatType_422YpCbCr8);
    for (std::size_t index = 0; index < 512; index += 2) {
        EXPECT_EQ(same[index], static_cast<std::uint8_t>(index * 7));
        EXPECT_EQ(same[index + 1], static_cast<std::uint8_t>((index + 1) * 7));
        EXPECT_EQ(swapped[index], static_cast<std::uint8_t>((index + 1) * 7));
        EXPECT_EQ(swapped[index + 1], static_cast<std::uint8_t>(index * 7));
    }
}

TEST(FrameConverter, IsWithinOneStepOfTheExactMatrixForEveryGreyAndColour)
{
    FrameConverter converter;
    const VideoLayout layout{VideoFormat::yuy2, 2, 2};
    for (int value = 0; value < 256; value += 5) {
        for (const Rgb color : {Rgb{value, value, value}, Rgb{value, 255 - value, 128}, Rgb{255, value, 0}}) {
            const auto pixels = draw(converter, makePicture(kCVPixelFormatType_32BGRA, 2, 2, color), layout);
            const auto expected = test::toVideoRange(color);
            const auto actual = yuvAt(layout, pixels, 0, 0);
            EXPECT_NEAR(actual.y, expected.y, 1);
            EXPECT_NEAR(actual.cb, expected.cb, 1);
            EXPECT_NEAR(actual.cr, expected.cr, 1);
        }
    }
}

TEST(FrameConverter, BringsFullRangeIntoVideoRange)
{
    FrameConverter converter;
    const VideoLayout layout{VideoFormat::nv12, 4, 4};
    const OSType full = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
    EXPECT_EQ(yuvAt(layout, draw(converter, makePicture(full, 4, 4, kWhite), layout), 0, 0).y, 235);
    EXPECT_EQ(yuvAt(layout, draw(converter, makePicture(full, 4, 4, kBlack), layout), 0, 0).y, 16);
    const auto grey = yuvAt(layout, draw(converter, makePicture(full, 4, 4, {128, 128, 128}), layout), 0, 0);
    EXPECT_EQ(grey.cb, 128);
    EXPECT_EQ(grey.cr, 128);
}

TEST(PictureReader, RefusesAFormatThatHasNoConversion)
{
    EXPECT_FALSE(PictureReader::isSupported(0x00000020));
    EXPECT_FALSE(PictureReader::isSupported(0));
    for (const OSType format : kSources)
        EXPECT_TRUE(PictureReader::isSupported(format));
}

TEST(VideoLayout, HasNoPaddingInRows)
{
    EXPECT_EQ((VideoLayout{VideoFormat::yuy2, 1920, 1080}.stride()), 3840);
    EXPECT_EQ((VideoLayout{VideoFormat::yuy2, 1920, 1080}.size()), 4147200U);
    EXPECT_EQ((VideoLayout{VideoFormat::nv12, 1920, 1080}.stride()), 1920);
    EXPECT_EQ((VideoLayout{VideoFormat::nv12, 1920, 1080}.size()), 3110400U);
    EXPECT_EQ((VideoLayout{VideoFormat::nv12, 3, 3}.size()), 9U + 8U);
}

}  // namespace
}  // namespace cmio
