#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Platform/Support/Ref.h"

namespace {

cf::Ref<CFStringRef> make(const char* text)
{
    return cf::adopt(CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
}

cf::Ref<CFArrayRef> makeArray(std::vector<const void*> values,
                              const CFArrayCallBacks* callBacks = &kCFTypeArrayCallBacks)
{
    return cf::adopt(
        CFArrayCreate(kCFAllocatorDefault, values.data(), static_cast<CFIndex>(values.size()), callBacks));
}

TEST(CFArray, HoldsItsValuesInOrder)
{
    const auto array = makeArray({CFSTR("first"), CFSTR("second")});
    EXPECT_EQ(CFArrayGetCount(array.get()), 2);
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 0), CFSTR("first"));
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 1), CFSTR("second"));
}

TEST(CFArray, KeepsObjectsAsLongAsItLives)
{
    const auto value = make("value");
    auto array = makeArray({value.get(), value.get()});
    EXPECT_EQ(CFGetRetainCount(value.get()), 3);
    array = {};
    EXPECT_EQ(CFGetRetainCount(value.get()), 1);
}

TEST(CFArray, WithoutCallbacksHoldsPlainAddresses)
{
    const auto value = make("value");
    const auto array = makeArray({value.get(), nullptr}, nullptr);
    EXPECT_EQ(CFGetRetainCount(value.get()), 1);
    EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 1), nullptr);
    EXPECT_FALSE(CFEqual(array.get(), makeArray({make("value").get(), nullptr}, nullptr).get()));
}

TEST(CFArray, EqualsAnArrayOfEqualValuesInTheSameOrder)
{
    const auto array = makeArray({CFSTR("a"), CFSTR("b")});
    const auto same = makeArray({make("a").get(), make("b").get()});
    EXPECT_TRUE(CFEqual(array.get(), same.get()));
    EXPECT_EQ(CFHash(array.get()), CFHash(same.get()));
    EXPECT_FALSE(CFEqual(array.get(), makeArray({CFSTR("b"), CFSTR("a")}).get()));
    EXPECT_FALSE(CFEqual(array.get(), makeArray({CFSTR("a")}).get()));
}

TEST(CFArray, MayBeEmpty)
{
    const auto array = cf::adopt(CFArrayCreate(kCFAllocatorDefault, nullptr, 0, &kCFTypeArrayCallBacks));
    EXPECT_EQ(CFArrayGetCount(array.get()), 0);
    EXPECT_TRUE(CFEqual(cf::adopt(CFCopyDescription(array.get())).get(), CFSTR("()")));
}

TEST(CFArray, IsDescribedByItsValues)
{
    const auto array = makeArray({CFSTR("a"), kCFBooleanTrue});
    EXPECT_TRUE(CFEqual(cf::adopt(CFCopyDescription(array.get())).get(), CFSTR("(a, true)")));
}

TEST(CFArrayDeathTest, EndsTheProcessForAnIndexBeyondTheArray)
{
    const auto array = makeArray({CFSTR("only")});
    EXPECT_DEATH(CFArrayGetValueAtIndex(array.get(), 1), "with an index beyond the array");
    EXPECT_DEATH(CFArrayGetValueAtIndex(array.get(), -1), "with an index beyond the array");
}

TEST(CFArrayDeathTest, EndsTheProcessForValuesThatAreNotThere)
{
    EXPECT_DEATH(CFArrayCreate(kCFAllocatorDefault, nullptr, 1, nullptr),
                 "CFArrayCreate\\(\\) called without values");
}

}  // namespace
