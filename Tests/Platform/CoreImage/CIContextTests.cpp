// Drawing into pixel buffers: where the pixels go, what stays, and how good a scaled picture is.

#include "Platform/CoreImage/CoreImage.h"

#include "Tests/Platform/CoreImage/PictureFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace {

bool failsToLock = false;
// The mapping of memory that fails, counted from the next one; 0: none.
int failingMap = 0;

}  // namespace

extern "C" {

CVReturn __real_CVPixelBufferLockBaseAddress(CVPixelBufferRef buffer, CVPixelBufferLockFlags flags);

CVReturn __wrap_CVPixelBufferLockBaseAddress(CVPixelBufferRef buffer, CVPixelBufferLockFlags flags)
{
    return failsToLock ? kCVReturnError : __real_CVPixelBufferLockBaseAddress(buffer, flags);
}

void* __real_mmap(void* place, size_t size, int protection, int flags, int file, off_t offset);

void* __wrap_mmap(void* place, size_t size, int protection, int flags, int file, off_t offset)
{
    if (failingMap > 0 && --failingMap == 0) return MAP_FAILED;
    return __real_mmap(place, size, protection, flags, file, offset);
}
}

namespace {

using namespace pavo::test;
using testing::ContainsRegex;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;

constexpr Pixel kUntouched{0x55, 0x55, 0x55, 0x55};

Pixel patchwork(std::uint32_t x, std::uint32_t y)
{
    return {static_cast<std::uint8_t>(10 + 9 * x), static_cast<std::uint8_t>(20 + 11 * y),
            static_cast<std::uint8_t>(x * y), 255};
}

ci::Image scaled(const ci::Image& image, double scale, double aspectRatio = 1)
{
    auto filter = ci::Filter::filterWithName("CILanczosScaleTransform").value();
    filter.setValue(image, ci::kCIInputImageKey);
    filter.setValue(scale, ci::kCIInputScaleKey);
    filter.setValue(aspectRatio, ci::kCIInputAspectRatioKey);
    return filter.outputImage().value();
}

ci::Image moved(const ci::Image& image, double x, double y)
{
    return image.imageByApplyingTransform(CGAffineTransformMakeTranslation(x, y));
}

// The image drawn into a buffer of that size, row by row from the top.
std::vector<Pixel> drawn(const ci::Image& image, std::size_t width, std::size_t height)
{
    const auto buffer = makeBuffer(width, height, 0x55);
    ci::Context context;
    context.render(image, buffer.get());
    return pixelsOf(buffer.get());
}

// `expected(x, y)`, from the top left corner, for every pixel.
template <typename Expected>
void expectPixels(const std::vector<Pixel>& pixels, std::size_t width, const Expected& expected)
{
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        const auto x = static_cast<std::uint32_t>(i % width);
        const auto y = static_cast<std::uint32_t>(i / width);
        EXPECT_EQ(pixels[i], expected(x, y)) << x << ", " << y;
    }
}

int difference(const Pixel& a, const Pixel& b)
{
    return std::max({std::abs(a.red - b.red), std::abs(a.green - b.green), std::abs(a.blue - b.blue),
                     std::abs(a.alpha - b.alpha)});
}

TEST(CIContext, AnImageAtItsOwnSizeIsCopiedExactly)
{
    expectPixels(drawn(makeImage(13, 7, patchwork), 13, 7), 13, patchwork);
}

TEST(CIContext, TheOriginIsTheLowerLeftCorner)
{
    const auto pixels = drawn(makeImage(3, 2, patchwork), 5, 4);
    expectPixels(pixels, 5,
                 [](auto x, auto y) { return x < 3 && y >= 2 ? patchwork(x, y - 2) : kUntouched; });
}

TEST(CIContext, ATranslationMovesToTheRightAndUp)
{
    const auto pixels = drawn(moved(makeImage(3, 2, patchwork), 2, 1), 6, 5);
    expectPixels(pixels, 6, [](auto x, auto y) {
        return x >= 2 && x < 5 && y >= 2 && y < 4 ? patchwork(x - 2, y - 2) : kUntouched;
    });
}

TEST(CIContext, WhatLiesOutsideTheBufferIsNotDrawn)
{
    const auto image = makeImage(10, 10, patchwork);
    expectPixels(drawn(moved(image, -3, -4), 4, 2), 4,
                 [](auto x, auto y) { return patchwork(x + 3, y + 4); });
    EXPECT_THAT(drawn(moved(image, 4, 0), 4, 2), Each(kUntouched));
    EXPECT_THAT(drawn(moved(image, -10, 0), 4, 2), Each(kUntouched));
    EXPECT_THAT(drawn(moved(image, 0, 2), 4, 2), Each(kUntouched));
    EXPECT_THAT(drawn(moved(image, 0, -10), 4, 2), Each(kUntouched));
}

TEST(CIContext, PlacesThatAreNoNumbersAreNotDrawn)
{
    const auto image = makeImage(2, 2, patchwork);
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    EXPECT_THAT(drawn(moved(image, kNaN, 0), 4, 2), Each(kUntouched));
    EXPECT_THAT(drawn(moved(image, 0, kInfinity), 4, 2), Each(kUntouched));
    EXPECT_THAT(drawn(moved(image, -1e300, 1e300), 4, 2), Each(kUntouched));
}

TEST(CIContext, ThePaddingOfRowsStays)
{
    const auto buffer = makeBuffer(5, 3, 0x55, 64);
    ASSERT_EQ(CVPixelBufferGetBytesPerRow(buffer.get()), 64U);
    ci::Context context;
    context.render(makeImage(9, 9, patchwork), buffer.get());
    expectPixels(pixelsOf(buffer.get()), 5, [](auto x, auto y) { return patchwork(x, y + 6); });
    const auto* bytes = static_cast<const std::uint8_t*>(CVPixelBufferGetBaseAddress(buffer.get()));
    for (std::size_t y = 0; y < 3; ++y)
        EXPECT_THAT(std::vector<int>(bytes + y * 64 + 20, bytes + (y + 1) * 64), Each(0x55));
}

TEST(CIContext, APlainColourStaysThatColourAtEveryScale)
{
    const auto image = makeImage(64, 48, [](auto, auto) { return Pixel{200, 17, 99, 255}; });
    for (const double scale : {0.1, 0.5, 0.75, 1.0, 1.3, 4.0})
        EXPECT_THAT(drawn(scaled(image, scale), static_cast<std::size_t>(64 * scale),
                          static_cast<std::size_t>(48 * scale)),
                    Each(Pixel{200, 17, 99, 255}))
            << scale;
}

TEST(CIContext, AScaledSlopeStaysASlope)
{
    const auto image = makeImage(200, 100, [](auto x, auto) {
        return Pixel{static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(x), 0, 255};
    });
    // A pixel's centre shows what lies at that place in the picture. The ends, where it is mirrored, are left
    // out.
    for (const double scale : {0.5, 0.75, 2.0}) {
        const auto width = static_cast<std::size_t>(200 * scale);
        const auto pixels = drawn(scaled(image, scale), width, static_cast<std::size_t>(100 * scale));
        for (std::size_t x = width / 10; x < width * 9 / 10; ++x)
            EXPECT_NEAR(pixels[x].red, (static_cast<double>(x) + 0.5) / scale - 0.5, 1.0)
                << scale << " " << x;
    }
}

TEST(CIContext, TheAspectRatioStretchesTheWidthOnly)
{
    const auto image = makeImage(8, 8, [](auto x, auto y) {
        return Pixel{static_cast<std::uint8_t>(x < 4 ? 255 : 0), static_cast<std::uint8_t>(y < 4 ? 255 : 0),
                     0, 255};
    });
    const auto pixels = drawn(scaled(image, 2, 4), 64, 16);
    // The filter swings a little around plain colours beside an edge.
    EXPECT_LE(difference(pixels[16 + 3 * 64], {255, 255, 0, 255}), 10);
    EXPECT_LE(difference(pixels[48 + 3 * 64], {0, 255, 0, 255}), 10);
    EXPECT_LE(difference(pixels[16 + 12 * 64], {255, 0, 0, 255}), 10);
    EXPECT_LE(difference(pixels[48 + 12 * 64], {0, 0, 0, 255}), 10);
}

TEST(CIContext, FineStripesBecomeGreyWhenTheyAreMadeSmaller)
{
    // Without a filter that looks at all pixels below, these would alias to black, white or broad bands.
    const auto image = makeImage(400, 100, [](auto x, auto) {
        const auto value = static_cast<std::uint8_t>(x % 2 == 0 ? 0 : 255);
        return Pixel{value, value, value, 255};
    });
    const auto pixels = drawn(scaled(image, 0.3), 120, 30);
    for (std::size_t x = 6; x < 114; ++x)
        EXPECT_NEAR(pixels[x + 15 * 120].red, 128, 6) << x;
}

TEST(CIContext, ASharpEdgeStaysSharpWhenItIsMadeLarger)
{
    const auto image = makeImage(20, 20, [](auto x, auto) {
        const auto value = static_cast<std::uint8_t>(x < 10 ? 40 : 200);
        return Pixel{value, value, value, 255};
    });
    const auto pixels = drawn(scaled(image, 4), 80, 80);
    EXPECT_NEAR(pixels[30 + 40 * 80].red, 40, 8);
    EXPECT_NEAR(pixels[50 + 40 * 80].red, 200, 8);
    // The filter's mark: a little overshoot beside the edge.
    const auto row = std::vector<Pixel>(pixels.begin() + 40 * 80, pixels.begin() + 41 * 80);
    const auto [low, high] = std::minmax_element(
        row.begin(), row.end(), [](const Pixel& a, const Pixel& b) { return a.red < b.red; });
    EXPECT_LT(low->red, 40);
    EXPECT_GT(high->red, 200);
}

TEST(CIContext, APartIsDrawnAsItIsInTheWhole)
{
    const auto image = scaled(makeImage(160, 90, patchwork), 0.7);
    const auto whole = drawn(image, 112, 63);
    const auto part = drawn(moved(image, -30, -20), 40, 30);
    for (std::size_t y = 0; y < 30; ++y)
        for (std::size_t x = 0; x < 40; ++x) {
            // The part's lower edge is row 20 from below of the whole.
            const auto& expected = whole[(x + 30) + (63 - 20 - 30 + y) * 112];
            EXPECT_LE(difference(part[x + y * 40], expected), 1) << x << ", " << y;
        }
}

TEST(CIContext, HalfAPixelOfTranslationMixesNeighbours)
{
    const auto image = makeImage(40, 10, [](auto x, auto) {
        const auto value = static_cast<std::uint8_t>(4 * x);
        return Pixel{value, value, value, 255};
    });
    const auto pixels = drawn(moved(image, -0.5, 0), 30, 10);
    for (std::size_t x = 5; x < 25; ++x)
        EXPECT_NEAR(pixels[x].red, 4 * (static_cast<double>(x) + 0.5), 1) << x;
}

TEST(CIContext, ColoursAreMultipliedByAlpha)
{
    const auto image = makeImage(
        2, 1, [](auto x, auto) { return Pixel{200, 100, 50, x == 0 ? std::uint8_t{128} : std::uint8_t{0}}; });
    const auto pixels = drawn(image, 2, 1);
    EXPECT_EQ(pixels[0], (Pixel{100, 50, 25, 128}));
    EXPECT_EQ(pixels[1], (Pixel{0, 0, 0, 0}));
}

TEST(CIContext, ScaledColoursNeverExceedTheirAlpha)
{
    const auto image = makeImage(40, 40, [](auto x, auto y) {
        const bool isInside = x > 12 && x < 28 && y > 12 && y < 28;
        return Pixel{255, 255, 255, isInside ? std::uint8_t{255} : std::uint8_t{90}};
    });
    for (const auto& pixel : drawn(scaled(image, 1.7), 68, 68)) {
        EXPECT_LE(pixel.red, pixel.alpha);
        EXPECT_LE(pixel.green, pixel.alpha);
        EXPECT_LE(pixel.blue, pixel.alpha);
    }
}

TEST(CIContext, AllCoveredPixelsOfAnOddSizeAreDrawn)
{
    const auto image = scaled(makeImage(37, 23, [](auto, auto) { return Pixel{9, 8, 7, 255}; }), 1.37);
    EXPECT_THAT(drawn(image, 50, 31), Each(Pixel{9, 8, 7, 255}));
}

TEST(CIContext, ExtremeScalesDoNoHarm)
{
    const auto image = makeImage(64, 64, [](auto, auto) { return Pixel{50, 60, 70, 255}; });
    EXPECT_THAT(drawn(scaled(image, 1000), 16, 16), Each(Pixel{50, 60, 70, 255}));
    EXPECT_EQ(drawn(scaled(image, 1.0 / 64), 4, 4)[12], (Pixel{50, 60, 70, 255}));
    EXPECT_THAT(drawn(scaled(image, 1e-6), 4, 4), Each(kUntouched));
}

TEST(CIContext, OtherPixelFormatsStayAsTheyAreWithALineInTheLog)
{
    cf::Ref<CVPixelBufferRef> buffer;
    ASSERT_EQ(CVPixelBufferCreate(kCFAllocatorDefault, 2, 2, kCVPixelFormatType_422YpCbCr8, nullptr,
                                  buffer.receive()),
              kCVReturnSuccess);
    auto* bytes = static_cast<std::uint8_t*>(CVPixelBufferGetBaseAddress(buffer.get()));
    std::fill_n(bytes, 4, 0x55);
    ci::Context context;
    testing::internal::CaptureStderr();
    context.render(makeImage(2, 2, patchwork), buffer.get());
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("Cannot draw into pixels of format 0x32767579"));
    EXPECT_THAT(std::vector<int>(bytes, bytes + 4), Each(0x55));
}

TEST(CIContext, ABufferThatCannotBeLockedStaysAsItIsWithALineInTheLog)
{
    const auto buffer = makeBuffer(2, 2, 0x55);
    ci::Context context;
    testing::internal::CaptureStderr();
    failsToLock = true;
    context.render(makeImage(2, 2, patchwork), buffer.get());
    failsToLock = false;
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("Cannot lock a pixel buffer to draw: -6660"));
    EXPECT_THAT(pixelsOf(buffer.get()), Each(kUntouched));
}

// What drawing the image leaves in the log; it has to leave the buffer as it was. `map` is the mapping of
// memory that fails.
std::string logOfFailure(const ci::Image& image, int map = 0)
{
    const auto buffer = makeBuffer(4, 3, 0x55);
    ci::Context context;
    testing::internal::CaptureStderr();
    failingMap = map;
    context.render(image, buffer.get());
    failingMap = 0;
    auto log = testing::internal::GetCapturedStderr();
    EXPECT_THAT(pixelsOf(buffer.get()), Each(kUntouched));
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);
    return log;
}

// Much smaller than a pixel, and yet around a pixel's centre.
ci::Image speck()
{
    constexpr double kScale = 1e-9;
    constexpr double kOffset = 0.5 - 32 * kScale;
    return moved(scaled(makeImage(64, 64, patchwork), kScale), kOffset, kOffset);
}

TEST(CIContext, APictureThatIsMuchSmallerThanAPixelIsNotDrawnAndGivesALineInTheLog)
{
    EXPECT_THAT(logOfFailure(speck()), EndsWith("Cannot scale a picture to 1 x 1: filter width too great\n"));
}

TEST(CIContext, WithoutMemoryNothingIsDrawnAndALineIsInTheLog)
{
    const auto image = scaled(makeImage(8, 8, patchwork), 0.5);
    // For the file's pixels, and for them plane by plane.
    for (const int map : {1, 2})
        EXPECT_THAT(logOfFailure(image, map), ContainsRegex("Cannot decode picture /.*: out of memory\n"));
    // For the rows, and for what the scaler needs to make them; whatever went wrong before.
    logOfFailure(speck());
    for (const int map : {3, 4})
        EXPECT_THAT(logOfFailure(image, map), EndsWith("Cannot scale a picture to 4 x 3: out of memory\n"));
}

}  // namespace
