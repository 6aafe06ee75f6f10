#include "Tools/RawVideoSource.h"

#include "Tests/Tools/ToolsTestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace pavo::tools {
namespace {

using testing::HasSubstr;

struct SizeOfFormat {
    Packing packing;
    std::uint32_t width, height;
    std::size_t bytes;
};

void PrintTo(const SizeOfFormat& format, std::ostream* stream)
{
    *stream << nameOf(format.packing) << " " << format.width << "x" << format.height;
}

class RawVideo : public testing::TestWithParam<SizeOfFormat> {
protected:
    VideoFormat format() const { return {GetParam().packing, GetParam().width, GetParam().height}; }
};

TEST_P(RawVideo, HasAsManyBytesAsItsFormatSays)
{
    EXPECT_EQ(frameBytes(format()), GetParam().bytes);
}

TEST_P(RawVideo, ReadsFrameAfterFrameAndTheEnd)
{
    const auto bytes = countingBytes(2 * GetParam().bytes);
    const TestInput input(bytes);
    RawVideoSource source(input.reader(), format());
    for (std::size_t frame = 0; frame < 2; ++frame) {
        PaddedImage image(format());
        ASSERT_EQ(source.next(image.view()).status, FrameStatus::ready);
        EXPECT_EQ(image.pixels(), bytes.substr(frame * GetParam().bytes, GetParam().bytes));
        EXPECT_TRUE(image.isPaddingUntouched());
    }
    PaddedImage image(format());
    EXPECT_EQ(source.next(image.view()).status, FrameStatus::ended);
}

TEST_P(RawVideo, LeavesAFrameOutWhole)
{
    const auto bytes = countingBytes(2 * GetParam().bytes);
    const TestInput input(bytes);
    RawVideoSource source(input.reader(), format());
    ASSERT_EQ(source.skip().status, FrameStatus::ready);
    PaddedImage image(format());
    ASSERT_EQ(source.next(image.view()).status, FrameStatus::ready);
    EXPECT_EQ(image.pixels(), bytes.substr(GetParam().bytes));
    EXPECT_EQ(source.skip().status, FrameStatus::ended);
}

TEST_P(RawVideo, FailsInsideOfAFrame)
{
    const auto whole = GetParam().bytes;
    const TestInput input(countingBytes(2 * whole - 1));
    RawVideoSource source(input.reader(), format());
    PaddedImage image(format());
    ASSERT_EQ(source.next(image.view()).status, FrameStatus::ready);
    const auto outcome = source.next(image.view());
    EXPECT_EQ(outcome.status, FrameStatus::failed);
    EXPECT_EQ(outcome.problem, "the input ends inside of frame 1: " + std::to_string(whole - 1) + " of " +
                                   std::to_string(whole) + " bytes");
}

INSTANTIATE_TEST_SUITE_P(
    OddAndEvenSizes, RawVideo,
    testing::Values(SizeOfFormat{Packing::uyvy, 4, 2, 16}, SizeOfFormat{Packing::uyvy, 3, 3, 24},
                    SizeOfFormat{Packing::yuy2, 4, 2, 16}, SizeOfFormat{Packing::yuy2, 1, 1, 4},
                    SizeOfFormat{Packing::nv12, 4, 2, 12}, SizeOfFormat{Packing::nv12, 3, 3, 17},
                    SizeOfFormat{Packing::i420, 4, 2, 12}, SizeOfFormat{Packing::i420, 5, 3, 27},
                    SizeOfFormat{Packing::bgra, 4, 2, 32}, SizeOfFormat{Packing::bgra, 3, 3, 36}));

TEST(RawVideoInput, FailsWithoutAnyFrame)
{
    const TestInput input("");
    RawVideoSource source(input.reader(), {Packing::bgra, 2, 2});
    const auto outcome = source.skip();
    EXPECT_EQ(outcome.status, FrameStatus::failed);
    EXPECT_EQ(outcome.problem, "the input has no frame");
}

TEST(VideoImage, HasItsPlanesOneAfterTheOther)
{
    Image image({Packing::i420, 5, 3});
    const auto view = image.view();
    EXPECT_EQ(view.planes[1].data - view.planes[0].data, 15);
    EXPECT_EQ(view.planes[2].data - view.planes[1].data, 6);
    EXPECT_EQ(view.planes[2].strideBytes, 3U);
}

TEST(VideoImageDeathTest, TakesNoBytesOfAnotherFormat)
{
    EXPECT_DEATH(Image({Packing::nv12, 3, 3}, std::vector<std::uint8_t>(16)), "do not match its format");
    Image small({Packing::bgra, 1, 1});
    Image large({Packing::bgra, 2, 1});
    EXPECT_DEATH(copyImage(small.view(), large.view()), "different formats");
}

}  // namespace
}  // namespace pavo::tools
