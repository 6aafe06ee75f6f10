// The encoding of arguments for the system's log, byte by byte: it must be what a compiler writes for the
// same format, for the platform's own log reads it.

#include "PavoLoggingSupport/OSLogBuffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace pavo {
namespace {

using testing::ElementsAre;

using Bytes = std::vector<std::uint8_t>;

Bytes bytesOf(OSLogBuffer& buffer)
{
    return {buffer.bytes().begin(), buffer.bytes().end()};
}

template <typename... Arguments>
Bytes encoded(std::string_view format, const Arguments&... arguments)
{
    const std::vector<LogArgument> list{LogArgument(arguments)...};
    OSLogBuffer buffer(format, list);
    return bytesOf(buffer);
}

template <typename Value>
Value valueAt(std::span<const std::uint8_t> bytes, std::size_t offset)
{
    Value value{};
    EXPECT_LE(offset + sizeof value, bytes.size());
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

TEST(OSLogBuffer, FormatWithoutConversionsHasNoItems)
{
    EXPECT_THAT(encoded("text 100%%"), ElementsAre(0, 0));
}

TEST(OSLogBuffer, EncodesPublicIntegersInFourBytes)
{
    EXPECT_THAT(encoded("%{public}d", 258), ElementsAre(0, 1, 0x02, 4, 2, 1, 0, 0));
    EXPECT_THAT(encoded("%{public}u", 0xFFFFFFFFU), ElementsAre(0, 1, 0x02, 4, 255, 255, 255, 255));
    EXPECT_THAT(encoded("%hhd", 1), ElementsAre(0, 1, 0x00, 4, 1, 0, 0, 0));
}

TEST(OSLogBuffer, EncodesLongIntegersInEightBytes)
{
    EXPECT_THAT(encoded("%ld", 42), ElementsAre(0, 1, 0x00, 8, 42, 0, 0, 0, 0, 0, 0, 0));
    EXPECT_THAT(encoded("%lld", -1), ElementsAre(0, 1, 0x00, 8, 255, 255, 255, 255, 255, 255, 255, 255));
}

TEST(OSLogBuffer, EncodesNumbersInEightBytes)
{
    const auto bytes = encoded("%{public}f", 59.94);
    ASSERT_EQ(bytes.size(), 12U);
    EXPECT_THAT(Bytes(bytes.begin(), bytes.begin() + 4), ElementsAre(0, 1, 0x02, 8));
    EXPECT_EQ(valueAt<double>(bytes, 4), 59.94);
}

TEST(OSLogBuffer, EncodesATextAsAnObjectThatLivesAsLongAsTheBuffer)
{
    const std::vector<LogArgument> arguments{LogArgument("grüße")};
    OSLogBuffer buffer("%{public}@", arguments);
    const auto bytes = bytesOf(buffer);
    ASSERT_EQ(bytes.size(), 12U);
    EXPECT_THAT(Bytes(bytes.begin(), bytes.begin() + 4), ElementsAre(2, 1, 0x42, 8));
    const auto expected = cf::adopt(CFStringCreateWithCString(nullptr, "grüße", kCFStringEncodingUTF8));
    EXPECT_TRUE(CFEqual(valueAt<CFTypeRef>(bytes, 4), expected.get()));
}

TEST(OSLogBuffer, EncodesAnObjectAsItIs)
{
    const auto object = cf::adopt(CFStringCreateWithCString(nullptr, "x", kCFStringEncodingUTF8));
    EXPECT_EQ(valueAt<CFTypeRef>(encoded("%@", object), 4), object.get());
}

TEST(OSLogBuffer, BytesThatAreNoTextBecomeReadable)
{
    const std::vector<LogArgument> arguments{LogArgument("a\xFF\x80z")};
    OSLogBuffer buffer("%@", arguments);
    const auto expected = cf::adopt(CFStringCreateWithCString(nullptr, "a??z", kCFStringEncodingUTF8));
    EXPECT_TRUE(CFEqual(valueAt<CFTypeRef>(bytesOf(buffer), 4), expected.get()));
}

TEST(OSLogBuffer, EncodesAPlainStringAsAPointer)
{
    const std::vector<LogArgument> arguments{LogArgument("plain")};
    OSLogBuffer buffer("%{public}s", arguments);
    const auto bytes = bytesOf(buffer);
    EXPECT_THAT(Bytes(bytes.begin(), bytes.begin() + 4), ElementsAre(2, 1, 0x22, 8));
    EXPECT_STREQ(valueAt<const char*>(bytes, 4), "plain");
}

TEST(OSLogBuffer, MarksPrivateItemsInTheSummary)
{
    const auto bytes = encoded("%{private}@ %{private}d", "a", 1);
    EXPECT_EQ(bytes.at(0), 3);
    EXPECT_EQ(bytes.at(1), 2);
    EXPECT_EQ(bytes.at(2), 0x41);
    EXPECT_EQ(bytes.at(12), 0x01);
}

TEST(OSLogBuffer, FindsThePrivacyAmongOtherAnnotations)
{
    EXPECT_EQ(encoded("%{time_t, public}d", 1).at(2), 0x02);
    EXPECT_EQ(encoded("%{private, mask.hash}d", 1).at(2), 0x01);
    EXPECT_EQ(encoded("%{errno}d", 1).at(2), 0x00);
}

TEST(OSLogBuffer, AmountsFromArgumentsAreItems)
{
    EXPECT_THAT(encoded("%*d", 5, 1), ElementsAre(0, 2, 0x00, 4, 5, 0, 0, 0, 0x00, 4, 1, 0, 0, 0));
    EXPECT_EQ(encoded("%.*f", 2, 0.5).at(1), 2);
}

TEST(OSLogBuffer, PrecisionOfAStringIsACountItem)
{
    EXPECT_EQ(encoded("%.3s", "abcdef").at(2), 0x10);
    EXPECT_EQ(encoded("%.3s", "abcdef").at(4), 3);
    EXPECT_EQ(encoded("%.*s", 4, "abcdef").at(2), 0x10);
    EXPECT_EQ(encoded("%.*s", 4, "abcdef").at(4), 4);
}

TEST(OSLogBuffer, EndsBeforeAConversionWithoutAnArgument)
{
    EXPECT_THAT(encoded("%d %d", 1), ElementsAre(0, 1, 0x00, 4, 1, 0, 0, 0));
}

TEST(OSLogBuffer, EndsBeforeAnArgumentThatDoesNotFit)
{
    EXPECT_THAT(encoded("%d %@ %d", 1, 2, 3), ElementsAre(0, 1, 0x00, 4, 1, 0, 0, 0));
    EXPECT_THAT(encoded("%d", "text"), ElementsAre(0, 0));
    EXPECT_THAT(encoded("%f", 1), ElementsAre(0, 0));
    EXPECT_THAT(encoded("%s", 1), ElementsAre(0, 0));
    EXPECT_THAT(encoded("%y", 1), ElementsAre(0, 0));
}

}  // namespace
}  // namespace pavo
