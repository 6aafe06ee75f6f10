// The picture that is shipped, drawn by the real CoreImage face: the frame shows the right part of it.

#include "CMIOExtensionSupport/BasicDefaultFrameGenerator.h"

#include "Tests/Doubles/Foundation/FoundationDouble.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace pavo {
namespace {

// Locks a 32BGRA buffer and reads it.
class FramePixels {
public:
    explicit FramePixels(CVPixelBufferRef buffer) : buffer_(buffer)
    {
        CVPixelBufferLockBaseAddress(buffer_, kCVPixelBufferLock_ReadOnly);
    }
    ~FramePixels() { CVPixelBufferUnlockBaseAddress(buffer_, kCVPixelBufferLock_ReadOnly); }
    FramePixels(const FramePixels&) = delete;
    FramePixels& operator=(const FramePixels&) = delete;

    std::size_t width() const { return CVPixelBufferGetWidth(buffer_); }
    std::size_t height() const { return CVPixelBufferGetHeight(buffer_); }
    // Blue, green, red, alpha; counted from the top left corner.
    const std::uint8_t* at(std::size_t x, std::size_t y) const
    {
        return static_cast<const std::uint8_t*>(CVPixelBufferGetBaseAddress(buffer_)) +
               y * CVPixelBufferGetBytesPerRow(buffer_) + x * 4;
    }

private:
    CVPixelBufferRef buffer_;
};

class PlaceholderPictureTest : public testing::Test {
protected:
    PlaceholderPictureTest()
    {
        test::resetFoundationDouble();
        test::setResourcePath(PAVO_PLACEHOLDER_PICTURE);
    }
};

// How far the frame is, on average, from the picture at its own size, each pixel of the frame against the
// mean of the picture's pixels below it. `shift` moves the expectation sideways.
double differenceFrom(const FramePixels& picture, const FramePixels& frame, double scale, double offsetX,
                      double offsetY, double shift = 0)
{
    double sum = 0;
    std::size_t count = 0;
    const int reach = static_cast<int>(std::lround(0.5 / scale));
    for (std::size_t y = 10; y < frame.height() - 10; y += 3)
        for (std::size_t x = 20; x < frame.width() - 20; x += 3) {
            const int centreX = static_cast<int>((static_cast<double>(x) + 0.5 + shift - offsetX) / scale);
            const int centreY = static_cast<int>((static_cast<double>(y) + 0.5 - offsetY) / scale);
            double mean = 0;
            for (int dy = -reach; dy <= reach; ++dy)
                for (int dx = -reach; dx <= reach; ++dx)
                    mean += picture.at(static_cast<std::size_t>(centreX + dx),
                                       static_cast<std::size_t>(centreY + dy))[1];
            mean /= (2 * reach + 1) * (2 * reach + 1);
            sum += std::abs(mean - frame.at(x, y)[1]);
            ++count;
        }
    return sum / static_cast<double>(count);
}

void expectCoveredToTheCorners(const FramePixels& frame)
{
    for (const std::size_t x : {std::size_t{0}, frame.width() - 1})
        for (const std::size_t y : {std::size_t{0}, frame.height() - 1}) {
            const auto* pixel = frame.at(x, y);
            EXPECT_EQ(pixel[3], 255) << x << ", " << y;
            EXPECT_LT(pixel[0] + pixel[1] + pixel[2], 150) << "the corners are dark: " << x << ", " << y;
            EXPECT_GT(pixel[0] + pixel[1] + pixel[2], 5) << "but not empty: " << x << ", " << y;
        }
}

TEST_F(PlaceholderPictureTest, IsLargerThanFullHD)
{
    const auto image = ci::Image::imageWithContentsOfFile(PAVO_PLACEHOLDER_PICTURE);
    ASSERT_TRUE(image);
    EXPECT_GE(image->extent().size.width, 1920);
    EXPECT_GE(image->extent().size.height, 1080);
}

TEST_F(PlaceholderPictureTest, FillsAFullHDFrameWhole)
{
    BasicDefaultFrameGenerator generator;
    const auto whole = generator.generateFrame(CGSizeMake(2560, 1440));
    const auto frame = generator.generateFrame(CGSizeMake(1920, 1080));
    ASSERT_TRUE(whole && frame);
    const FramePixels picture(whole.get());
    const FramePixels pixels(frame.get());
    expectCoveredToTheCorners(pixels);
    EXPECT_LT(differenceFrom(picture, pixels, 0.75, 0, 0), 1.0);
    EXPECT_GT(differenceFrom(picture, pixels, 0.75, 0, 0, 4), 2.0) << "the comparison sees a shift";
}

TEST_F(PlaceholderPictureTest, FillsA4To3FrameWithItsMiddle)
{
    BasicDefaultFrameGenerator generator;
    const auto whole = generator.generateFrame(CGSizeMake(2560, 1440));
    const auto frame = generator.generateFrame(CGSizeMake(640, 480));
    ASSERT_TRUE(whole && frame);
    const FramePixels picture(whole.get());
    const FramePixels pixels(frame.get());
    expectCoveredToTheCorners(pixels);
    const double offsetX = 320 - 2560.0 / 3 / 2;
    EXPECT_LT(differenceFrom(picture, pixels, 1.0 / 3, offsetX, 0), 1.5);
    EXPECT_GT(differenceFrom(picture, pixels, 1.0 / 3, offsetX, 0, 3), 3.0) << "the comparison sees a shift";
}

TEST_F(PlaceholderPictureTest, KeepsWhatMattersInTheMiddle4To3Part)
{
    // Outside it there is only the dark ground.
    BasicDefaultFrameGenerator generator;
    const auto whole = generator.generateFrame(CGSizeMake(2560, 1440));
    ASSERT_TRUE(whole);
    const FramePixels picture(whole.get());
    int brightest = 0;
    int brightestInTheMiddle = 0;
    for (std::size_t y = 0; y < 1440; ++y)
        for (std::size_t x = 0; x < 2560; ++x) {
            auto& greatest = x < 320 || x >= 2240 ? brightest : brightestInTheMiddle;
            greatest = std::max<int>(greatest, picture.at(x, y)[1]);
        }
    EXPECT_LT(brightest, 80);
    EXPECT_GT(brightestInTheMiddle, 240);
}

}  // namespace
}  // namespace pavo
