#include "Tools/Arguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace pavo::tools {
namespace {

using testing::HasSubstr;

TEST(SizeArgument, IsWidthAndHeight)
{
    const auto size = parseSize("1280x720");
    ASSERT_TRUE(size);
    EXPECT_EQ(size.value().width, 1280U);
    EXPECT_EQ(size.value().height, 720U);
}

TEST(SizeArgument, MayBeOddAndGoesUpToTheLargestSide)
{
    EXPECT_TRUE(parseSize("1x1"));
    EXPECT_TRUE(parseSize("641x359"));
    EXPECT_TRUE(parseSize("16384x16384"));
}

TEST(SizeArgument, IsRefusedWhereItIsNoSize)
{
    for (const char* text : {"", "x", "1280", "1280x", "x720", "1280X720", "1280*720", "1280x720x3",
                             " 1280x720", "1280x 720", "-1x5", "12.5x5", "4294967296x1", "0x10x2"}) {
        const auto size = parseSize(text);
        ASSERT_FALSE(size) << text;
        EXPECT_THAT(size.problem().text, HasSubstr("WIDTHxHEIGHT"));
        EXPECT_THAT(size.problem().text, HasSubstr("'" + std::string(text) + "'"));
    }
}

TEST(SizeArgument, IsRefusedWhereASideIsOutOfRange)
{
    for (const char* text : {"0x720", "1280x0", "16385x1", "1x16385"}) {
        const auto size = parseSize(text);
        ASSERT_FALSE(size) << text;
        EXPECT_THAT(size.problem().text, HasSubstr("from 1 to 16384"));
    }
}

TEST(RateArgument, IsANumberOrAFraction)
{
    EXPECT_DOUBLE_EQ(parseRate("60").value().framesPerSecond(), 60);
    EXPECT_DOUBLE_EQ(parseRate("29.97").value().framesPerSecond(), 29.97);
    EXPECT_DOUBLE_EQ(parseRate("0.5").value().framesPerSecond(), 0.5);
    EXPECT_DOUBLE_EQ(parseRate("1000").value().framesPerSecond(), 1000);
    const auto ntsc = parseRate("30000/1001");
    EXPECT_EQ(ntsc.value().numerator, 30000U);
    EXPECT_EQ(ntsc.value().denominator, 1001U);
}

TEST(RateArgument, IsRefusedWhereItIsNoRate)
{
    for (const char* text : {"", "abc", "0", "-1", "1000.1", "inf", "nan", "60fps", "0/1", "1/0", "30/", "/1",
                             "2001/2", "1/1/1", "-30/1", "0.0001"}) {
        const auto rate = parseRate(text);
        ASSERT_FALSE(rate) << text;
        EXPECT_THAT(rate.problem().text, HasSubstr("'" + std::string(text) + "'"));
    }
}

TEST(FrameRate, DoesNotAddItsErrorUpOverTheFrames)
{
    const FrameRate ntsc{30000, 1001};
    EXPECT_EQ(ntsc.dueNs(30000), 1001 * std::int64_t{1'000'000'000});
    const FrameRate film{24, 1};
    EXPECT_EQ(film.dueNs(24 * 3600 * 100), 3600 * 100 * std::int64_t{1'000'000'000});
}

TEST(FormatArgument, IsANameInAnyCase)
{
    EXPECT_EQ(parsePacking("UYVY").value(), Packing::uyvy);
    EXPECT_EQ(parsePacking("yuy2").value(), Packing::yuy2);
    EXPECT_EQ(parsePacking("Nv12").value(), Packing::nv12);
    EXPECT_EQ(parsePacking("i420").value(), Packing::i420);
    EXPECT_EQ(parsePacking("BGRA").value(), Packing::bgra);
    for (const char* text : {"", "RGB", "UYV", "UYVYY"})
        EXPECT_FALSE(parsePacking(text)) << text;
}

TEST(MatrixArgument, IsOneOfTwoOrLeftOpen)
{
    EXPECT_EQ(parseMatrix("bt601").value(), Matrix::bt601);
    EXPECT_EQ(parseMatrix("bt709").value(), Matrix::bt709);
    EXPECT_EQ(parseMatrix("auto").value(), std::nullopt);
    for (const char* text : {"", "BT709", "bt2020", "709", "auto "})
        EXPECT_FALSE(parseMatrix(text)) << text;
}

TEST(CountArgument, IsAWholeNumberFromOne)
{
    EXPECT_EQ(parseCount("1").value(), 1U);
    EXPECT_EQ(parseCount("18446744073709551615").value(), 18446744073709551615U);
    for (const char* text : {"", "0", "-1", "1.5", "010", "0x10", "18446744073709551616", "many", " 1"}) {
        const auto count = parseCount(text);
        ASSERT_FALSE(count) << text;
        EXPECT_THAT(count.problem().text, HasSubstr("whole number from 1"));
    }
}

TEST(TimeArgument, IsANumberOfSeconds)
{
    EXPECT_DOUBLE_EQ(parseDuration("2.5").value(), 2.5);
    EXPECT_DOUBLE_EQ(parseDuration("1e9").value(), kLongestSeconds);
    EXPECT_DOUBLE_EQ(parseDelay("0").value(), 0);
    EXPECT_DOUBLE_EQ(parseDelay("3").value(), 3);
}

TEST(TimeArgument, IsRefusedWhereItIsNoTime)
{
    for (const char* text : {"", "-1", "nan", "inf", "-inf", "1e10", "5s", "soon"}) {
        EXPECT_FALSE(parseDuration(text)) << text;
        EXPECT_FALSE(parseDelay(text)) << text;
    }
    EXPECT_FALSE(parseDuration("0"));
}

TEST(NameArgument, IsAnyTextButNone)
{
    EXPECT_EQ(parseName(" a b ").value(), " a b ");
    EXPECT_FALSE(parseName(""));
}

TEST(NumberedName, HasTheNumberInItsPlace)
{
    EXPECT_EQ(numberedName("shot-%d.png", 7).value(), "shot-7.png");
    EXPECT_EQ(numberedName("shot-%04d.png", 7).value(), "shot-0007.png");
    EXPECT_EQ(numberedName("%02d", 12345).value(), "12345");
    EXPECT_EQ(numberedName("%09d", 4294967295U).value(), "4294967295");
}

TEST(NumberedName, IsRefusedWithoutOnePlaceForANumber)
{
    for (const char* text : {"", "shot.png", "100%", "%s.png", "%4d.png", "%010d.png", "%d-%d.png",
                             "%d%%.png", "%-3d.png", "%n.png", "%0xd.png"}) {
        const auto name = numberedName(text, 1);
        ASSERT_FALSE(name) << text;
        EXPECT_THAT(name.problem().text, HasSubstr("shot-%04d.png"));
    }
}

TEST(PortArgument, IsAWholeNumberOfSixteenBits)
{
    EXPECT_EQ(parsePort("0").value(), 0);
    EXPECT_EQ(parsePort("7286").value(), 7286);
    EXPECT_EQ(parsePort("65535").value(), 65535);
    for (const char* text : {"", "65536", "-1", "+1", "80 ", " 80", "80.0", "0x50", "http", "99999999999999"})
        EXPECT_EQ(parsePort(text).problem().text,
                  "a port is a whole number from 0 to 65535, not '" + std::string(text) + "'");
}

}  // namespace
}  // namespace pavo::tools
