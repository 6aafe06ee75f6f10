#include "PavoLoggingSupport/DescriptiveText.h"
#include "PavoLoggingSupport/DumpText.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace pavo {
namespace {

struct Port {
    int number;
};

std::string describe(const Port& port)
{
    return "Port " + std::to_string(port.number);
}

TEST(FloatingPointText, IsShortestWithAtLeastOneDecimal)
{
    EXPECT_EQ(floatingPointText(1920), "1920.0");
    EXPECT_EQ(floatingPointText(0), "0.0");
    EXPECT_EQ(floatingPointText(-0.0), "-0.0");
    EXPECT_EQ(floatingPointText(0.1), "0.1");
    EXPECT_EQ(floatingPointText(59.94), "59.94");
    EXPECT_EQ(floatingPointText(1.0 / 3.0), "0.3333333333333333");
    EXPECT_EQ(floatingPointText(0.1 + 0.2), "0.30000000000000004");
    EXPECT_EQ(floatingPointText(9.5), "9.5");
}

TEST(FloatingPointText, HasAnExponentWhereTheNumberIsVeryLargeOrSmall)
{
    EXPECT_EQ(floatingPointText(1e16), "1e+16");
    EXPECT_EQ(floatingPointText(9007199254740993.0), "9007199254740992.0");
    EXPECT_EQ(floatingPointText(0.0001), "0.0001");
    EXPECT_EQ(floatingPointText(0.00001), "1e-05");
    EXPECT_EQ(floatingPointText(-1.5e300), "-1.5e+300");
}

TEST(FloatingPointText, NamesWhatIsNoNumber)
{
    EXPECT_EQ(floatingPointText(std::numeric_limits<double>::quiet_NaN()), "nan");
    EXPECT_EQ(floatingPointText(std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(floatingPointText(-std::numeric_limits<double>::infinity()), "-inf");
}

TEST(DescriptiveText, DescribesPlainValues)
{
    EXPECT_EQ(descriptiveText(-5), "-5");
    EXPECT_EQ(descriptiveText(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
    EXPECT_EQ(descriptiveText(true), "true");
    EXPECT_EQ(descriptiveText(false), "false");
    EXPECT_EQ(descriptiveText(2.0), "2.0");
    EXPECT_EQ(descriptiveText("a \"text\""), "a \"text\"");
    EXPECT_EQ(descriptiveText(std::string("text")), "text");
}

TEST(DescriptiveText, DescribesOptionals)
{
    EXPECT_EQ(descriptiveText(std::optional<int>()), "nil");
    EXPECT_EQ(descriptiveText(std::optional(5)), "Optional(5)");
    EXPECT_EQ(descriptiveText(std::optional<std::string>("a")), "Optional(\"a\")");
}

TEST(DescriptiveText, DescribesContainersAndTuples)
{
    EXPECT_EQ(descriptiveText(std::vector<std::string>{"a", "b\n"}), "[\"a\", \"b\\n\"]");
    EXPECT_EQ(descriptiveText(std::vector<int>{}), "[]");
    EXPECT_EQ(descriptiveText(std::array<double, 2>{1, 2.5}), "[1.0, 2.5]");
    EXPECT_EQ(descriptiveText(std::map<std::string, int>{{"a", 1}, {"b", 2}}), "[\"a\": 1, \"b\": 2]");
    EXPECT_EQ(descriptiveText(std::map<int, int>{}), "[:]");
    EXPECT_EQ(descriptiveText(std::tuple(1, std::string("a"), true)), "(1, \"a\", true)");
    EXPECT_EQ(descriptiveText(std::pair(1, 2)), "(1, 2)");
    EXPECT_EQ(descriptiveText(std::vector<std::vector<int>>{{1}, {}}), "[[1], []]");
}

TEST(DescriptiveText, DescribesObjects)
{
    const auto string = cf::adopt(CFStringCreateWithCString(nullptr, "text", kCFStringEncodingUTF8));
    EXPECT_EQ(descriptiveText(string), "text");
    EXPECT_EQ(descriptiveText(cf::Ref<CFTypeRef>()), "nil");
}

TEST(DescriptiveText, AsksATypeThatDescribesItself)
{
    EXPECT_EQ(descriptiveText(Port{80}), "Port 80");
    EXPECT_EQ(descriptiveText(std::vector<Port>{{1}, {2}}), "[Port 1, Port 2]");
}

TEST(QuotedText, EscapesWhatWouldEndOrBreakTheText)
{
    EXPECT_EQ(quotedText(std::string("a\"b\\c\n\r\t\0d", 10)), "\"a\\\"b\\\\c\\n\\r\\t\\0d\"");
}

TEST(DumpText, ShowsPlainValuesOnOneLine)
{
    EXPECT_EQ(dumpText(5), "- 5");
    EXPECT_EQ(dumpText("a"), "- \"a\"");
    EXPECT_EQ(dumpText(Port{80}), "- Port 80");
    EXPECT_EQ(dumpText(std::optional<int>()), "- nil");
    EXPECT_EQ(dumpText(std::vector<int>{}), "- 0 elements");
}

TEST(DumpText, ShowsThePartsOfAnOptional)
{
    EXPECT_EQ(dumpText(std::optional(5)), "▿ Optional(5)\n"
                                          "  - some: 5");
}

TEST(DumpText, ShowsThePartsOfATuple)
{
    EXPECT_EQ(dumpText(std::tuple(1, std::string("a"))), "▿ (2 elements)\n"
                                                         "  - .0: 1\n"
                                                         "  - .1: \"a\"");
    EXPECT_EQ(dumpText(std::tuple<>()), "- (0 elements)");
}

TEST(DumpText, ShowsTheEntriesOfAMap)
{
    EXPECT_EQ(dumpText(std::map<std::string, int>{{"a", 1}}), "▿ 1 key/value pair\n"
                                                              "  ▿ (2 elements)\n"
                                                              "    - key: \"a\"\n"
                                                              "    - value: 1");
}

TEST(DumpText, IndentsWhatLiesDeeper)
{
    const std::vector<std::optional<std::pair<int, std::vector<int>>>> value = {
        std::pair(1, std::vector{2, 3}), std::nullopt};
    EXPECT_EQ(dumpText(value), "▿ 2 elements\n"
                               "  ▿ Optional((1, [2, 3]))\n"
                               "    ▿ some: (2 elements)\n"
                               "      - .0: 1\n"
                               "      ▿ .1: 2 elements\n"
                               "        - 2\n"
                               "        - 3\n"
                               "  - nil");
}

}  // namespace
}  // namespace pavo
