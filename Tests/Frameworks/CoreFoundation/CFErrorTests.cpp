#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "Platform/Support/Ref.h"

namespace {

using Info = cf::Ref<CFDictionaryRef>;

Info infoWith(CFStringRef key, CFTypeRef value)
{
    std::array<const void*, 1> keys = {key};
    std::array<const void*, 1> values = {value};
    return cf::adopt(CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), 1,
                                        &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

cf::Ref<CFErrorRef> make(CFErrorDomain domain, CFIndex code, const Info& info = {})
{
    return cf::adopt(CFErrorCreate(kCFAllocatorDefault, domain, code, info.get()));
}

std::string textOf(CFStringRef string)
{
    return CFStringGetCStringPtr(string, kCFStringEncodingUTF8);
}

TEST(CFError, NamesHaveTheirFixedValues)
{
    EXPECT_EQ(textOf(kCFErrorDomainOSStatus), "NSOSStatusErrorDomain");
    EXPECT_EQ(textOf(kCFErrorLocalizedDescriptionKey), "NSLocalizedDescription");
}

TEST(CFError, KeepsDomainAndCode)
{
    const auto error = make(kCFErrorDomainOSStatus, -60005);
    EXPECT_EQ(CFErrorGetDomain(error.get()), kCFErrorDomainOSStatus);
    EXPECT_EQ(CFErrorGetCode(error.get()), -60005);
    EXPECT_EQ(CFGetTypeID(error.get()), CFErrorGetTypeID());
}

TEST(CFError, KeepsItsDomainAlive)
{
    auto domain = cf::adopt(
        CFStringCreateWithCString(kCFAllocatorDefault, "a domain of its own", kCFStringEncodingUTF8));
    const auto error = make(domain.get(), 1);
    EXPECT_EQ(CFGetRetainCount(domain.get()), 2);
    domain = {};
    EXPECT_EQ(textOf(CFErrorGetDomain(error.get())), "a domain of its own");
}

TEST(CFError, TheGetRuleLeavesTheReferencesAlone)
{
    const auto error = make(kCFErrorDomainOSStatus, 2);
    CFErrorGetDomain(error.get());
    CFErrorGetCode(error.get());
    EXPECT_EQ(CFGetRetainCount(error.get()), 1);
}

TEST(CFError, WithoutADictionaryItsDictionaryIsEmpty)
{
    const auto info = cf::adopt(CFErrorCopyUserInfo(make(kCFErrorDomainOSStatus, 1).get()));
    ASSERT_TRUE(info);
    EXPECT_EQ(CFDictionaryGetCount(info.get()), 0);
}

TEST(CFError, LaterChangesOfTheDictionaryAreNotSeen)
{
    const auto changing = cf::adopt(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    const auto error =
        cf::adopt(CFErrorCreate(kCFAllocatorDefault, kCFErrorDomainOSStatus, 1, changing.get()));
    CFDictionarySetValue(changing.get(), kCFErrorLocalizedDescriptionKey, CFSTR("late"));
    EXPECT_EQ(CFDictionaryGetCount(cf::adopt(CFErrorCopyUserInfo(error.get())).get()), 0);
}

TEST(CFError, IsDescribedByTheTextThatItWasGiven)
{
    const auto error =
        make(kCFErrorDomainOSStatus, 1, infoWith(kCFErrorLocalizedDescriptionKey, CFSTR("No helper")));
    EXPECT_EQ(textOf(cf::adopt(CFErrorCopyDescription(error.get())).get()), "No helper");
    EXPECT_EQ(textOf(cf::adopt(CFCopyDescription(error.get())).get()),
              "NSOSStatusErrorDomain error 1: No helper");
}

TEST(CFError, WithoutATextItIsDescribedByDomainAndCode)
{
    const std::string expected = "The operation couldn’t be completed. (NSOSStatusErrorDomain error -60006.)";
    EXPECT_EQ(textOf(cf::adopt(CFErrorCopyDescription(make(kCFErrorDomainOSStatus, -60006).get())).get()),
              expected);
    const auto noText =
        make(kCFErrorDomainOSStatus, -60006, infoWith(kCFErrorLocalizedDescriptionKey, kCFBooleanTrue));
    EXPECT_EQ(textOf(cf::adopt(CFErrorCopyDescription(noText.get())).get()), expected)
        << "a text that is no string";
}

TEST(CFError, ErrorsOfEqualDomainCodeAndDictionaryAreEqual)
{
    const auto error = make(CFSTR("domain"), 3);
    const auto domain =
        cf::adopt(CFStringCreateWithCString(kCFAllocatorDefault, "domain", kCFStringEncodingUTF8));
    EXPECT_TRUE(CFEqual(error.get(), make(domain.get(), 3).get()));
    EXPECT_EQ(CFHash(error.get()), CFHash(make(domain.get(), 3).get()));
    EXPECT_FALSE(CFEqual(error.get(), make(CFSTR("domain"), 4).get()));
    EXPECT_FALSE(CFEqual(error.get(), make(CFSTR("other"), 3).get()));
    EXPECT_FALSE(
        CFEqual(error.get(), make(CFSTR("domain"), 3, infoWith(CFSTR("key"), CFSTR("value"))).get()));
}

TEST(CFErrorDeathTest, IsNotMadeWithoutADomain)
{
    EXPECT_DEATH(CFErrorCreate(kCFAllocatorDefault, nullptr, 1, nullptr), "without a domain");
}

TEST(CFErrorDeathTest, NoErrorHasNoCode)
{
    EXPECT_DEATH(CFErrorGetCode(nullptr), "called with NULL");
}

}  // namespace
