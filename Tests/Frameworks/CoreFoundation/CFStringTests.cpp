#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Platform/Support/Ref.h"

namespace {

cf::Ref<CFStringRef> make(const char* text, CFStringEncoding encoding = kCFStringEncodingUTF8)
{
    return cf::adopt(CFStringCreateWithCString(kCFAllocatorDefault, text, encoding));
}

cf::Ref<CFStringRef> makeFromBytes(std::string_view bytes, bool isExternalRepresentation = false)
{
    return cf::adopt(CFStringCreateWithBytes(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size()),
        kCFStringEncodingUTF8, isExternalRepresentation));
}

TEST(CFString, EncodingsHaveTheirFixedValues)
{
    EXPECT_EQ(kCFStringEncodingUTF8, 0x08000100);
    EXPECT_EQ(kCFStringEncodingASCII, 0x0600);
}

TEST(CFString, KeepsTheTextThatItWasMadeFrom)
{
    const auto string = make("Pavo Camera");
    EXPECT_STREQ(CFStringGetCStringPtr(string.get(), kCFStringEncodingUTF8), "Pavo Camera");
    EXPECT_EQ(CFStringGetLength(string.get()), 11);
}

TEST(CFString, CountsItsLengthInUtf16CodeUnits)
{
    EXPECT_EQ(CFStringGetLength(make("").get()), 0);
    EXPECT_EQ(CFStringGetLength(make("é…").get()), 2);
    EXPECT_EQ(CFStringGetLength(make("📷").get()), 2);
}

TEST(CFString, IsNotMadeFromBytesThatAreNotUtf8)
{
    for (const std::string_view bytes :
         {"\x80", "\xC0\xAF", "\xC3", "\xC3(", "\xE2\x80", "\xE2\x28\xA1", "\xE0\x80\x80", "\xED\xA0\x80",
          "\xF0\x80\x80\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xF0\x9F\x93(", "\xFF"})
        EXPECT_FALSE(makeFromBytes(bytes)) << testing::PrintToString(bytes);
}

TEST(CFString, IsMadeFromTheFirstAndTheLastCharacterOfEachLength)
{
    for (const std::string_view bytes :
         {"\x01", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
          "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"})
        EXPECT_TRUE(makeFromBytes(bytes)) << testing::PrintToString(bytes);
}

TEST(CFString, AsciiHasNoOtherCharacters)
{
    EXPECT_TRUE(make("plain", kCFStringEncodingASCII));
    EXPECT_FALSE(make("é", kCFStringEncodingASCII));
    char buffer[16];
    const auto string = make("é");
    EXPECT_FALSE(CFStringGetCString(string.get(), buffer, sizeof buffer, kCFStringEncodingASCII));
    EXPECT_EQ(CFStringGetCStringPtr(string.get(), kCFStringEncodingASCII), nullptr);
    EXPECT_STREQ(CFStringGetCStringPtr(make("plain").get(), kCFStringEncodingASCII), "plain");
}

TEST(CFString, RefusesAnEncodingThatItDoesNotKnow)
{
    constexpr CFStringEncoding unknown = 0x0100;
    char buffer[16];
    EXPECT_FALSE(make("text", unknown));
    EXPECT_FALSE(CFStringGetCString(make("text").get(), buffer, sizeof buffer, unknown));
    EXPECT_EQ(CFStringGetCStringPtr(make("text").get(), unknown), nullptr);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(4, unknown), -1);
}

TEST(CFString, IsNotMadeFromNothing)
{
    EXPECT_EQ(CFStringCreateWithCString(kCFAllocatorDefault, nullptr, kCFStringEncodingUTF8), nullptr);
    EXPECT_EQ(CFStringCreateWithBytes(kCFAllocatorDefault, nullptr, 1, kCFStringEncodingUTF8, false),
              nullptr);
    EXPECT_TRUE(
        cf::adopt(CFStringCreateWithBytes(kCFAllocatorDefault, nullptr, 0, kCFStringEncodingUTF8, false)));
}

TEST(CFString, LeavesOutTheByteOrderMarkOfAnExternalRepresentationOnly)
{
    EXPECT_EQ(CFStringGetLength(makeFromBytes("\xEF\xBB\xBFtext", true).get()), 4);
    EXPECT_EQ(CFStringGetLength(makeFromBytes("\xEF\xBB\xBFtext", false).get()), 5);
}

TEST(CFString, CopiesItsTextIntoABufferThatIsLargeEnough)
{
    char buffer[5] = {};
    EXPECT_TRUE(CFStringGetCString(make("text").get(), buffer, 5, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "text");
}

TEST(CFString, CopiesNothingIntoABufferThatIsTooSmallForTheNul)
{
    char buffer[5] = "old";
    EXPECT_FALSE(CFStringGetCString(make("text").get(), buffer, 4, kCFStringEncodingUTF8));
    EXPECT_FALSE(CFStringGetCString(make("text").get(), buffer, 0, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "old");
}

TEST(CFString, ATextWithNulCannotBeShownAsACString)
{
    const auto string = makeFromBytes(std::string_view("a\0b", 3));
    EXPECT_EQ(CFStringGetLength(string.get()), 3);
    EXPECT_EQ(CFStringGetCStringPtr(string.get(), kCFStringEncodingUTF8), nullptr);
    EXPECT_FALSE(CFEqual(string.get(), make("a").get()));
}

TEST(CFString, TheMaximumSizeSufficesForEveryText)
{
    for (const char* const text : {"text", "é…", "📷"}) {
        const auto string = make(text);
        const auto size =
            CFStringGetMaximumSizeForEncoding(CFStringGetLength(string.get()), kCFStringEncodingUTF8);
        EXPECT_GE(size, static_cast<CFIndex>(std::string_view(text).size()));
    }
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(4, kCFStringEncodingASCII), 4);
}

TEST(CFString, EqualTextsAreEqualAndHashedAlike)
{
    const auto first = make("same");
    const auto second = make("same");
    ASSERT_NE(first.get(), second.get());
    EXPECT_TRUE(CFEqual(first.get(), second.get()));
    EXPECT_EQ(CFHash(first.get()), CFHash(second.get()));
    EXPECT_TRUE(CFEqual(first.get(), CFSTR("same")));
    EXPECT_FALSE(CFEqual(first.get(), make("other").get()));
}

TEST(CFString, TheSameConstantIsOneObject)
{
    EXPECT_EQ(CFSTR("constant"), CFSTR("constant"));
    EXPECT_NE(CFSTR("constant"), CFSTR("another constant"));
}

TEST(CFString, ConstantsAreTheSameInEveryThread)
{
    std::vector<CFStringRef> seen(4);
    std::vector<std::thread> threads;
    for (auto& string : seen)
        threads.emplace_back([&string] { string = CFSTR("made by whoever comes first"); });
    for (auto& thread : threads)
        thread.join();
    for (const auto string : seen)
        EXPECT_EQ(string, seen.front());
}

TEST(CFString, IsItsOwnDescription)
{
    const auto string = make("text");
    const auto description = cf::adopt(CFCopyDescription(string.get()));
    EXPECT_EQ(description.get(), string.get());
    EXPECT_EQ(CFGetRetainCount(string.get()), 2);
}

}  // namespace
