#include "Tools/Y4MSource.h"

#include "Tests/Tools/ToolsTestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace pavo::tools {
namespace {

using testing::HasSubstr;

std::string problemIn(const std::string& header)
{
    const auto parsed = parseY4MHeader(header);
    return parsed ? std::string() : parsed.problem().text;
}

// What reading the input gives: the source, or why there is none.
Result<std::unique_ptr<FrameSource>> open(const TestInput& input)
{
    return Y4MSource::open(input.reader());
}

TEST(Y4MHeader, SaysSizeAndRate)
{
    const auto header = parseY4MHeader("YUV4MPEG2 W1280 H720 F30000:1001 Ip A1:1 C420jpeg");
    ASSERT_TRUE(header);
    EXPECT_EQ(header.value().width, 1280U);
    EXPECT_EQ(header.value().height, 720U);
    ASSERT_TRUE(header.value().rate);
    EXPECT_EQ(header.value().rate->numerator, 30000U);
    EXPECT_EQ(header.value().rate->denominator, 1001U);
    EXPECT_FALSE(header.value().is422);
}

TEST(Y4MHeader, MayHaveItsFieldsInAnyOrderAndMoreBlanks)
{
    const auto header = parseY4MHeader("YUV4MPEG2  H2   C422 W3 ");
    ASSERT_TRUE(header);
    EXPECT_EQ(header.value().width, 3U);
    EXPECT_EQ(header.value().height, 2U);
    EXPECT_TRUE(header.value().is422);
}

TEST(Y4MHeader, MayLeaveRateAndColoursOut)
{
    const auto header = parseY4MHeader("YUV4MPEG2 W2 H2");
    ASSERT_TRUE(header);
    EXPECT_FALSE(header.value().rate);
    EXPECT_FALSE(header.value().is422);
}

TEST(Y4MHeader, MayNotKnowTheRate)
{
    EXPECT_FALSE(parseY4MHeader("YUV4MPEG2 W2 H2 F0:0").value().rate);
}

TEST(Y4MHeader, TakesInterlacingAspectsCommentsAndUnknownFields)
{
    for (const char* field :
         {"It", "Ib", "Im", "I?", "A0:0", "A16:11", "XYSCSS=420JPEG", "XCOLORRANGE=FULL", "Q7"})
        EXPECT_EQ(problemIn(std::string("YUV4MPEG2 W2 H2 ") + field), "") << field;
}

TEST(Y4MHeader, TakesTheColourSpacesOf8BitsAndTheirNames)
{
    for (const char* colours : {"C420", "C420jpeg", "C420mpeg2", "C420paldv"})
        EXPECT_FALSE(parseY4MHeader(std::string("YUV4MPEG2 W2 H2 ") + colours).value().is422) << colours;
    EXPECT_TRUE(parseY4MHeader("YUV4MPEG2 W2 H2 C422").value().is422);
}

TEST(Y4MHeader, RefusesOtherColourSpacesByName)
{
    for (const char* colours : {"444", "411", "mono", "420p10", "422p10", "444alpha", ""})
        EXPECT_THAT(problemIn(std::string("YUV4MPEG2 W2 H2 C") + colours),
                    HasSubstr("colour space " + std::string(colours) + " is not supported"));
}

TEST(Y4MHeader, RefusesWhatIsNoYuv4Mpeg2)
{
    for (const char* line : {"", "YUV4MPEG", "YUV4MPEG3 W2 H2", "YUV4MPEG2W2 H2", "yuv4mpeg2 W2 H2", "RIFF"})
        EXPECT_EQ(problemIn(line), "the input is not YUV4MPEG2") << line;
}

TEST(Y4MHeader, RefusesBadParameters)
{
    for (const char* field : {"W", "W0", "W-1", "W16385", "W99999999999", "W1.5", "W2x", "H", "H0", "H16385",
                              "Hx", "F", "F60", "F60:", "F:1", "F-1:1", "F1001:1", "F1:1:1", "Fa:b"})
        EXPECT_EQ(problemIn(std::string("YUV4MPEG2 W2 H2 ") + field),
                  "the YUV4MPEG2 header has a bad parameter: " + std::string(field));
}

TEST(Y4MHeader, HasToSayTheSize)
{
    for (const char* line : {"YUV4MPEG2", "YUV4MPEG2 W2", "YUV4MPEG2 H2 F30:1"})
        EXPECT_EQ(problemIn(line), "the YUV4MPEG2 header does not say the size") << line;
}

TEST(Y4MHeader, MayBeAsLargeAsAnyPicture)
{
    const auto header = parseY4MHeader("YUV4MPEG2 W16384 H16384");
    ASSERT_TRUE(header);
    EXPECT_EQ(frameBytes({Packing::i420, header.value().width, header.value().height}), 402653184U);
}

TEST(Y4MSource, FailsWhereTheHeaderHasNoEnd)
{
    EXPECT_EQ(open(TestInput("YUV4MPEG2 W2 H2")).problem().text, "the YUV4MPEG2 header has no end");
    EXPECT_EQ(open(TestInput("YUV4MPEG2 W2 H2 X" + std::string(2000, 'x') + "\n")).problem().text,
              "the YUV4MPEG2 header has no end");
}

TEST(Y4MSource, Keeps420AsItIsAtAnOddSize)
{
    const auto frame = countingBytes(27);  // 5×3 and twice 3×2
    const TestInput input("YUV4MPEG2 W5 H3 F25:1\nFRAME\n" + frame + "FRAME Ip Xcomment\n" + frame);
    const auto source = open(input);
    ASSERT_TRUE(source);
    const auto format = source.value()->format();
    EXPECT_EQ(format.packing, Packing::i420);
    EXPECT_DOUBLE_EQ(source.value()->rate()->framesPerSecond(), 25);
    for (int i = 0; i < 2; ++i) {
        PaddedImage image(format);
        ASSERT_EQ(source.value()->next(image.view()).status, FrameStatus::ready);
        EXPECT_EQ(image.pixels(), frame);
        EXPECT_TRUE(image.isPaddingUntouched());
    }
    EXPECT_EQ(source.value()->skip().status, FrameStatus::ended);
}

TEST(Y4MSource, Packs422WithAllOfItsSamples)
{
    const std::string y = "\x10\x11\x12\x13\x20\x21\x22\x23", u = "\x40\x41\x42\x43", v = "\x50\x51\x52\x53";
    const TestInput input("YUV4MPEG2 W4 H2 C422\nFRAME\n" + y + u + v);
    const auto source = open(input);
    ASSERT_TRUE(source);
    EXPECT_EQ(source.value()->format().packing, Packing::uyvy);
    PaddedImage image(source.value()->format());
    ASSERT_EQ(source.value()->next(image.view()).status, FrameStatus::ready);
    EXPECT_EQ(image.pixels(), "\x40\x10\x50\x11\x41\x12\x51\x13\x42\x20\x52\x21\x43\x22\x53\x23");
    EXPECT_TRUE(image.isPaddingUntouched());
}

TEST(Y4MSource, Packs422OfAnOddSize)
{
    const std::string y = "\x10\x11\x12", u = "\x40\x41", v = "\x50\x51";
    const TestInput input("YUV4MPEG2 W3 H1 C422\nFRAME\n" + y + u + v);
    const auto source = open(input);
    ASSERT_TRUE(source);
    PaddedImage image(source.value()->format());
    ASSERT_EQ(source.value()->next(image.view()).status, FrameStatus::ready);
    // The last pixel's neighbour is outside of the picture and may be anything.
    EXPECT_EQ(image.pixels().substr(0, 7), "\x40\x10\x50\x11\x41\x12\x51");
    EXPECT_TRUE(image.isPaddingUntouched());
}

TEST(Y4MSource, LeavesFramesOut)
{
    for (const auto* colours : {"", " C422"}) {
        const std::size_t bytes = *colours ? 8 : 6;
        const TestInput input("YUV4MPEG2 W2 H2" + std::string(colours) + "\nFRAME\n" +
                              std::string(bytes, 'a') + "FRAME\n" + std::string(bytes, 'b'));
        const auto source = open(input);
        ASSERT_TRUE(source);
        EXPECT_EQ(source.value()->skip().status, FrameStatus::ready);
        PaddedImage image(source.value()->format());
        ASSERT_EQ(source.value()->next(image.view()).status, FrameStatus::ready);
        EXPECT_EQ(image.pixels(), std::string(bytes, 'b'));
        EXPECT_EQ(source.value()->next(image.view()).status, FrameStatus::ended);
    }
}

TEST(Y4MSource, FailsInsideOfAFrame)
{
    for (const auto* colours : {"", " C422"}) {
        const std::string whole = *colours ? "8" : "6";
        const TestInput input("YUV4MPEG2 W2 H2" + std::string(colours) + "\nFRAME\nabc");
        const auto source = open(input);
        PaddedImage image(source.value()->format());
        const auto outcome = source.value()->next(image.view());
        EXPECT_EQ(outcome.status, FrameStatus::failed);
        EXPECT_EQ(outcome.problem, "the input ends inside of frame 0: 3 of " + whole + " bytes");
    }
}

TEST(Y4MSource, FailsBehindTheLineOfAFrameThatIsMissing)
{
    const TestInput input("YUV4MPEG2 W2 H2\nFRAME\nabcdefFRAME\n");
    const auto source = open(input);
    EXPECT_EQ(source.value()->skip().status, FrameStatus::ready);
    EXPECT_EQ(source.value()->skip().problem, "the input ends inside of frame 1: 0 of 6 bytes");
}

TEST(Y4MSource, FailsWithoutAnyFrame)
{
    const TestInput input("YUV4MPEG2 W2 H2\n");
    const auto source = open(input);
    EXPECT_EQ(source.value()->skip().problem, "the input has no frame");
}

TEST(Y4MSource, FailsWhereSomethingElseBegins)
{
    for (const char* rest : {"FRAMES\n", "frame\n", "FRAME", "\n", "abc"}) {
        const TestInput input("YUV4MPEG2 W2 H2\n" + std::string(rest));
        const auto source = open(input);
        EXPECT_EQ(source.value()->skip().problem,
                  "the input has no YUV4MPEG2 frame where frame 0 should begin")
            << rest;
    }
}

}  // namespace
}  // namespace pavo::tools
