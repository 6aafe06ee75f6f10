#include "PavoLoggingSupport/LogText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

namespace pavo {
namespace {

template <typename... Arguments>
std::string text(std::string_view format, const Arguments&... arguments)
{
    const std::vector<LogArgument> list{LogArgument(arguments)...};
    return logText(format, list);
}

TEST(LogText, RemovesThePrivacyMarks)
{
    EXPECT_EQ(text("%{public}d%{private}d%{public}@", 1, 2, "c"), "12c");
}

TEST(LogText, RemovesThemLiterallyEverywhere)
{
    // After the replacement this is an escaped percent sign and plain text.
    EXPECT_EQ(text("%%{public}d", 7), "%d");
}

TEST(LogText, FormatsIntegersByTheirConversion)
{
    EXPECT_EQ(text("%d %i %u %x %X %o", -1, 2, 3U, 255, 255, 8), "-1 2 3 ff FF 10");
    EXPECT_EQ(text("%ld %lld %lu %zu", INT64_MIN, std::int64_t{-5}, UINT64_MAX, std::size_t{9}),
              "-9223372036854775808 -5 18446744073709551615 9");
    EXPECT_EQ(text("%hhd %hhu %hd", 257, 255, 65537), "1 255 1");
    EXPECT_EQ(text("%c%c", 'o', 'k'), "ok");
}

TEST(LogText, ReadsAnIntegerAsTheConversionSays)
{
    EXPECT_EQ(text("%u", -1), "4294967295");
    EXPECT_EQ(text("%d", std::int64_t{1} << 32), "0");
    EXPECT_EQ(text("%ld", -3), "-3");
    EXPECT_EQ(text("%d", true), "1");
}

TEST(LogText, FormatsNumbers)
{
    EXPECT_EQ(text("%f %.2f %g %e", 59.94, 1.005, 0.5, 1.0), "59.940000 1.00 0.5 1.000000e+00");
    EXPECT_EQ(text("%f", 1.5F), "1.500000");
    EXPECT_EQ(text("%f", std::numeric_limits<double>::infinity()), "inf");
}

TEST(LogText, FormatsTextsAndObjects)
{
    const auto string = cf::adopt(CFStringCreateWithCString(nullptr, "object", kCFStringEncodingUTF8));
    const std::int32_t number = 42;
    const auto value = cf::adopt(CFNumberCreate(nullptr, kCFNumberSInt32Type, &number));
    EXPECT_EQ(text("%@ %s %@ %@", std::string("a"), "b", string, value), "a b object 42");
    EXPECT_EQ(text("%@", cf::Ref<CFTypeRef>()), "(null)");
    EXPECT_EQ(text("%s", static_cast<const char*>(nullptr)), "(null)");
}

TEST(LogText, HonoursFlagsWidthAndPrecision)
{
    EXPECT_EQ(text("[%5d][%-5d][%05d][%+d][%#x]", 42, 42, 42, 42, 42), "[   42][42   ][00042][+42][0x2a]");
    EXPECT_EQ(text("[%*d][%-*d]", 4, 1, 4, 2), "[   1][2   ]");
    EXPECT_EQ(text("[%*d]", -4, 1), "[1   ]");
    EXPECT_EQ(text("[%.*f][%.*f]", 1, 0.25, -1, 0.25), "[0.2][0.250000]");
}

TEST(LogText, CountsCharactersInTheWidthAndPrecisionOfTexts)
{
    EXPECT_EQ(text("[%4s][%-4@][%.1s][%.3@]", "äö", "ü", "äö", "abcdef"), "[  äö][ü   ][ä][abc]");
}

TEST(LogText, PercentSignsStay)
{
    EXPECT_EQ(text("100%% of %d%%", 5), "100% of 5%");
}

TEST(LogText, ConversionWithoutAnArgumentStaysAsItStands)
{
    EXPECT_EQ(text("%d and %@"), "%d and %@");
    EXPECT_EQ(text("%d and %5.1f and %s", 1), "1 and %5.1f and %s");
    EXPECT_EQ(text("%*d", 5), "%*d");
    EXPECT_EQ(text("%.*f", 5), "%.*f");
}

TEST(LogText, ConversionWhoseArgumentDoesNotFitStaysAsItStands)
{
    EXPECT_EQ(text("%d %f %s %@ %d", "text", 1, 2, 3, 4), "%d %f %s %@ 4");
}

TEST(LogText, ArgumentsBeyondTheFormatAreLeftOut)
{
    EXPECT_EQ(text("one", 1, 2), "one");
}

TEST(LogText, UnfinishedAndUnknownConversionsStay)
{
    EXPECT_EQ(text("50%"), "50%");
    EXPECT_EQ(text("%{public"), "%{public");
    EXPECT_EQ(text("%-5.2l"), "%-5.2l");
    EXPECT_EQ(text("%y", 1), "%y");
}

TEST(LogText, HugeWidthsAreCutDown)
{
    EXPECT_EQ(text("%999999999d", 1).size(), 4096U);
    EXPECT_EQ(text("%*d", 999999999, 1).size(), 4096U);
    EXPECT_EQ(text("%*s", INT32_MIN, "").size(), 4096U);
}

TEST(LogText, TextMayHoldNul)
{
    const std::string value("a\0b", 3);
    EXPECT_EQ(text("<%@>", value), std::string("<a\0b>", 5));
}

}  // namespace
}  // namespace pavo
