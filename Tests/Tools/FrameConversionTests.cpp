#include "Tools/FrameConversion.h"

#include "Tools/PatternSource.h"

#include <gtest/gtest.h>

#include <libyuv.h>

#include <cstdlib>
#include <vector>

namespace pavo::tools {
namespace {

constexpr std::uint32_t kPadding = 32;

// A camera's frame in memory of its own, with padding behind its rows.
struct TestFrame {
    std::vector<std::uint8_t> bytes;
    CameraFrame frame{};

    TestFrame(CameraFormat format, std::uint32_t width, std::uint32_t height)
    {
        const std::uint32_t halfWidth = (width + 1) / 2, halfHeight = (height + 1) / 2;
        frame.format = format;
        frame.width = width;
        frame.height = height;
        switch (format) {
        case CameraFormat::yuy2:
        case CameraFormat::uyvy:
            frame.strideBytes = halfWidth * 4 + kPadding;
            break;
        case CameraFormat::nv12:
            frame.strideBytes = halfWidth * 2 + kPadding;
            break;
        case CameraFormat::bgrx:
            frame.strideBytes = width * 4 + kPadding;
            break;
        }
        const auto rows = format == CameraFormat::nv12 ? height + halfHeight : height;
        bytes.resize(std::size_t{frame.strideBytes} * rows);
        frame.bytes = bytes;
    }

    void fill(std::uint8_t y, std::uint8_t u, std::uint8_t v)
    {
        const auto stride = frame.strideBytes;
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            const auto place = i % stride;
            switch (frame.format) {
            case CameraFormat::yuy2:
                bytes[i] = place % 2 == 0 ? y : place % 4 == 1 ? u : v;
                break;
            case CameraFormat::uyvy:
                bytes[i] = place % 2 == 1 ? y : place % 4 == 0 ? u : v;
                break;
            case CameraFormat::nv12:
                bytes[i] = i < std::size_t{stride} * frame.height ? y : place % 2 == 0 ? u : v;
                break;
            case CameraFormat::bgrx:
                break;
            }
        }
    }
};

class FrameConversion : public testing::TestWithParam<CameraFormat> {};

TEST_P(FrameConversion, MakesRgbOfTheColoursThatTheCameraMeans)
{
    struct Meaning {
        Matrix matrix;
        std::array<int, 3> rgb;
    };
    // Luma 63, chroma 115 and 200, solved for the colour.
    for (const auto& [matrix, expected] :
         {Meaning{Matrix::bt601, {170, 1, 29}}, Meaning{Matrix::bt709, {184, 19, 27}}}) {
        TestFrame frame(GetParam(), 7, 5);
        frame.frame.matrix = matrix;
        frame.fill(63, 115, 200);
        for (std::size_t i = 0; GetParam() == CameraFormat::bgrx && i < frame.bytes.size(); ++i)
            frame.bytes[i] = static_cast<std::uint8_t>(
                std::array{expected[2], expected[1], expected[0], 0}[i % frame.frame.strideBytes % 4]);
        const auto rgb = rgbOf(frame.frame);
        ASSERT_EQ(rgb.size(), 7U * 5 * 3);
        for (std::size_t i = 0; i < rgb.size(); ++i)
            ASSERT_LE(std::abs(rgb[i] - expected[i % 3]), 2) << i;
    }
}

TEST_P(FrameConversion, MakesI420OfAnOddSize)
{
    TestFrame frame(GetParam(), 7, 5);
    frame.fill(63, 115, 200);
    const auto image = i420Of(frame.frame);
    EXPECT_EQ(image.format().packing, Packing::i420);
    ASSERT_EQ(image.bytes().size(), 35U + 2 * 12);
    if (GetParam() == CameraFormat::bgrx) return;  // all black: the size is what matters
    EXPECT_EQ(image.bytes().front(), 63);
    EXPECT_EQ(image.bytes()[34], 63);
    EXPECT_EQ(image.bytes()[35], 115);
    EXPECT_EQ(image.bytes().back(), 200);
}

TEST_P(FrameConversion, FindsTheCounterOfTheTestPattern)
{
    constexpr std::uint32_t kWidth = 640, kHeight = 360, kCounter = 0xA5C3F1;
    TestPattern pattern(kWidth, kHeight);
    Image drawn(pattern.format());
    pattern.draw(kCounter, drawn.view());
    TestFrame frame(GetParam(), kWidth, kHeight);
    const auto* source = drawn.bytes().data();
    auto* target = frame.bytes.data();
    const int stride = static_cast<int>(frame.frame.strideBytes), sourceStride = kWidth * 2;
    switch (GetParam()) {
    case CameraFormat::uyvy:
        libyuv::CopyPlane(source, sourceStride, target, stride, sourceStride, kHeight);
        break;
    case CameraFormat::yuy2:
        for (std::size_t y = 0; y < kHeight; ++y)
            for (std::size_t x = 0; x < kWidth * 2; ++x)
                target[y * frame.frame.strideBytes + x] = source[y * kWidth * 2 + (x ^ 1)];
        break;
    case CameraFormat::nv12:
        libyuv::UYVYToNV12(source, sourceStride, target, stride,
                           target + std::size_t{frame.frame.strideBytes} * kHeight, stride, kWidth, kHeight);
        break;
    case CameraFormat::bgrx:
        libyuv::UYVYToARGB(source, sourceStride, target, stride, kWidth, kHeight);
        break;
    }
    EXPECT_EQ(counterOf(frame.frame), kCounter);
    frame.fill(100, 128, 128);
    if (GetParam() != CameraFormat::bgrx) {
        EXPECT_EQ(counterOf(frame.frame), std::nullopt);
    }
}

TEST_P(FrameConversion, KnowsWhatAFrameNeeds)
{
    TestFrame test(GetParam(), 7, 5);
    EXPECT_TRUE(isWhole(test.frame));
    auto frame = test.frame;
    frame.bytes = frame.bytes.first(frame.bytes.size() - 1);
    EXPECT_FALSE(isWhole(frame)) << "a byte less";
    frame = test.frame;
    frame.strideBytes = 7;
    EXPECT_FALSE(isWhole(frame)) << "rows too short";
    for (const auto& [width, height] : {std::pair{0U, 5U}, {7U, 0U}, {16385U, 1U}, {1U, 16385U}}) {
        frame = test.frame;
        frame.width = width;
        frame.height = height;
        EXPECT_FALSE(isWhole(frame)) << width << "x" << height;
    }
    frame = test.frame;
    frame.height = 16384;
    frame.strideBytes = 0xFFFFFFFF;
    EXPECT_FALSE(isWhole(frame)) << "what it would need does not fit 32 bits";
}

INSTANTIATE_TEST_SUITE_P(AllFormats, FrameConversion,
                         testing::Values(CameraFormat::yuy2, CameraFormat::uyvy, CameraFormat::nv12,
                                         CameraFormat::bgrx),
                         [](const auto& format) { return std::string(nameOf(format.param)); });

TEST(KeptFrame, OutlivesTheMemoryThatItWasCopiedFrom)
{
    auto borrowed = std::make_unique<TestFrame>(CameraFormat::uyvy, 4, 2);
    borrowed->fill(50, 60, 70);
    const KeptFrame kept(borrowed->frame);
    const auto before = borrowed->bytes;
    borrowed.reset();
    EXPECT_EQ(kept.frame.bytes.data(), kept.bytes.data());
    EXPECT_EQ(kept.bytes, before);
    EXPECT_TRUE(isWhole(kept.frame));
}

TEST(PatternSource, CountsItsFramesAlsoThoseThatAreLeftOut)
{
    PatternSource source(640, 360);
    Image image(source.format());
    const auto counter = [&image] {
        return readCounter(640, 360, [&image](std::uint32_t x, std::uint32_t y) {
            return image.bytes()[(std::size_t{y} * 640 + x) * 2 + 1];
        });
    };
    ASSERT_EQ(source.next(image.view()).status, FrameStatus::ready);
    EXPECT_EQ(counter(), 0U);
    ASSERT_EQ(source.skip().status, FrameStatus::ready);
    ASSERT_EQ(source.next(image.view()).status, FrameStatus::ready);
    EXPECT_EQ(counter(), 2U);
}

TEST(FrameConversion, MakesPicturesForScreensAtMostThatLargeInTheFramesShape)
{
    struct Case {
        std::uint32_t width, height, mostWidth, mostHeight, expectedWidth, expectedHeight;
    };
    for (const auto& [width, height, mostWidth, mostHeight, expectedWidth, expectedHeight] :
         {Case{1920, 1080, 960, 540, 960, 540}, Case{640, 360, 960, 540, 640, 360},
          Case{1080, 1920, 960, 540, 304, 540}, Case{1920, 1080, 100, 1000, 100, 56},
          Case{1000, 2, 10, 10, 10, 1}, Case{33, 17, 16, 16, 16, 8}, Case{1, 1, 1, 1, 1, 1}}) {
        for (const auto format :
             {CameraFormat::yuy2, CameraFormat::uyvy, CameraFormat::nv12, CameraFormat::bgrx}) {
            TestFrame frame(format, width, height);
            const Image picture = bgraOf(frame.frame, mostWidth, mostHeight);
            EXPECT_EQ(picture.format().packing, Packing::bgra);
            EXPECT_EQ(picture.bytes()[3], 0xFF) << "opaque";
            EXPECT_EQ(picture.format().width, expectedWidth) << nameOf(format);
            EXPECT_EQ(picture.format().height, expectedHeight) << nameOf(format);
        }
    }
}

TEST(FrameConversion, PicturesForScreensHaveTheColorsOfRgbOnes)
{
    for (const auto format : {CameraFormat::yuy2, CameraFormat::uyvy, CameraFormat::nv12}) {
        TestFrame frame(format, 64, 48);
        frame.fill(81, 90, 240);
        const auto rgb = rgbOf(frame.frame);
        const Image picture = bgraOf(frame.frame, 32, 32);
        for (std::size_t i = 0; i < picture.bytes().size(); i += 4)
            for (std::size_t color = 0; color < 3; ++color)
                EXPECT_NEAR(picture.bytes()[i + color], rgb[2 - color], 1) << nameOf(format);
    }
}

}  // namespace
}  // namespace pavo::tools
