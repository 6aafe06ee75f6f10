#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Platform/Support/Ref.h"

namespace {

using Dictionary = cf::Ref<CFDictionaryRef>;
using MutableDictionary = cf::Ref<CFMutableDictionaryRef>;

cf::Ref<CFStringRef> make(const char* text)
{
    return cf::adopt(CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
}

Dictionary makeDictionary(std::vector<const void*> keys, std::vector<const void*> values)
{
    return cf::adopt(CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(),
                                        static_cast<CFIndex>(keys.size()), &kCFTypeDictionaryKeyCallBacks,
                                        &kCFTypeDictionaryValueCallBacks));
}

MutableDictionary makeMutable()
{
    return cf::adopt(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                               &kCFTypeDictionaryValueCallBacks));
}

TEST(CFDictionary, FindsValuesByEqualKeys)
{
    const auto dictionary = makeDictionary({CFSTR("Width"), CFSTR("Height")}, {CFSTR("w"), CFSTR("h")});
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 2);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), make("Height").get()), CFSTR("h"));
    EXPECT_TRUE(CFDictionaryContainsKey(dictionary.get(), make("Width").get()));
}

TEST(CFDictionary, FindsNothingForAnAbsentKey)
{
    const auto dictionary = makeDictionary({CFSTR("Width")}, {CFSTR("w")});
    const void* value = &dictionary;
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), CFSTR("Depth")), nullptr);
    EXPECT_FALSE(CFDictionaryContainsKey(dictionary.get(), CFSTR("Depth")));
    EXPECT_FALSE(CFDictionaryGetValueIfPresent(dictionary.get(), CFSTR("Depth"), &value));
    EXPECT_EQ(value, &dictionary);
}

TEST(CFDictionary, TellsANullValueFromAnAbsentKey)
{
    const auto dictionary =
        cf::adopt(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, nullptr));
    CFDictionaryAddValue(dictionary.get(), CFSTR("key"), nullptr);
    const void* value = &dictionary;
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), CFSTR("key")), nullptr);
    EXPECT_TRUE(CFDictionaryGetValueIfPresent(dictionary.get(), CFSTR("key"), &value));
    EXPECT_EQ(value, nullptr);
    EXPECT_TRUE(CFDictionaryGetValueIfPresent(dictionary.get(), CFSTR("key"), nullptr));
}

TEST(CFDictionary, KeepsKeysAndValuesAsLongAsItLives)
{
    const auto key = make("key");
    const auto value = make("value");
    auto dictionary = makeDictionary({key.get()}, {value.get()});
    EXPECT_EQ(CFGetRetainCount(key.get()), 2);
    EXPECT_EQ(CFGetRetainCount(value.get()), 2);
    dictionary = {};
    EXPECT_EQ(CFGetRetainCount(key.get()), 1);
    EXPECT_EQ(CFGetRetainCount(value.get()), 1);
}

TEST(CFDictionary, KeepsTheFirstOfEqualKeys)
{
    const auto dictionary = makeDictionary({CFSTR("key"), make("key").get()}, {CFSTR("1"), CFSTR("2")});
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), CFSTR("key")), CFSTR("1"));
}

TEST(CFDictionary, WithoutCallbacksComparesAddressesAndKeepsNothing)
{
    const auto key = make("key");
    const auto value = make("value");
    const auto dictionary = cf::adopt(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, nullptr, nullptr));
    CFDictionarySetValue(dictionary.get(), key.get(), value.get());
    EXPECT_EQ(CFGetRetainCount(key.get()), 1);
    EXPECT_EQ(CFGetRetainCount(value.get()), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), key.get()), value.get());
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), make("key").get()), nullptr);
}

TEST(CFDictionary, SettingReplacesTheValueAndLetsTheOldOneGo)
{
    const auto dictionary = makeMutable();
    const auto first = make("first");
    const auto second = make("second");
    CFDictionarySetValue(dictionary.get(), CFSTR("key"), first.get());
    CFDictionarySetValue(dictionary.get(), CFSTR("key"), second.get());
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), CFSTR("key")), second.get());
    EXPECT_EQ(CFGetRetainCount(first.get()), 1);
    EXPECT_EQ(CFGetRetainCount(second.get()), 2);
}

TEST(CFDictionary, SettingTheValueThatItAlreadyOwnsKeepsIt)
{
    const auto dictionary = makeMutable();
    CFDictionarySetValue(dictionary.get(), CFSTR("key"), make("owned by the dictionary only").get());
    const auto* const value = CFDictionaryGetValue(dictionary.get(), CFSTR("key"));
    CFDictionarySetValue(dictionary.get(), CFSTR("key"), value);
    EXPECT_EQ(CFGetRetainCount(value), 1);
}

TEST(CFDictionary, AddingDoesNothingWhereTheKeyIsPresent)
{
    const auto dictionary = makeMutable();
    CFDictionaryAddValue(dictionary.get(), CFSTR("key"), CFSTR("first"));
    CFDictionaryAddValue(dictionary.get(), CFSTR("key"), CFSTR("second"));
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), CFSTR("key")), CFSTR("first"));
}

TEST(CFDictionary, RemovingLetsKeyAndValueGo)
{
    const auto dictionary = makeMutable();
    const auto key = make("key");
    const auto value = make("value");
    CFDictionarySetValue(dictionary.get(), key.get(), value.get());
    CFDictionarySetValue(dictionary.get(), CFSTR("other"), value.get());
    CFDictionaryRemoveValue(dictionary.get(), make("absent").get());
    CFDictionaryRemoveValue(dictionary.get(), make("key").get());
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
    EXPECT_EQ(CFGetRetainCount(key.get()), 1);
    CFDictionaryRemoveAllValues(dictionary.get());
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 0);
    EXPECT_EQ(CFGetRetainCount(value.get()), 1);
}

TEST(CFDictionary, ACopyDoesNotFollowItsOriginal)
{
    const auto original = makeMutable();
    CFDictionarySetValue(original.get(), CFSTR("key"), CFSTR("old"));
    const auto copy = cf::adopt(CFDictionaryCreateCopy(kCFAllocatorDefault, original.get()));
    const auto mutableCopy = cf::adopt(CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, copy.get()));
    CFDictionarySetValue(original.get(), CFSTR("key"), CFSTR("new"));
    CFDictionarySetValue(mutableCopy.get(), CFSTR("another"), CFSTR("value"));
    EXPECT_EQ(CFDictionaryGetValue(copy.get(), CFSTR("key")), CFSTR("old"));
    EXPECT_EQ(CFDictionaryGetCount(copy.get()), 1);
    EXPECT_EQ(CFDictionaryGetValue(mutableCopy.get(), CFSTR("key")), CFSTR("old"));
    EXPECT_EQ(CFDictionaryGetCount(mutableCopy.get()), 2);
}

TEST(CFDictionary, EqualsADictionaryWithEqualKeysAndValues)
{
    const auto dictionary = makeDictionary({CFSTR("a"), CFSTR("b")}, {CFSTR("1"), CFSTR("2")});
    const auto same = makeDictionary({make("b").get(), make("a").get()}, {make("2").get(), make("1").get()});
    EXPECT_TRUE(CFEqual(dictionary.get(), same.get()));
    EXPECT_EQ(CFHash(dictionary.get()), CFHash(same.get()));
    EXPECT_FALSE(CFEqual(dictionary.get(), makeDictionary({CFSTR("a")}, {CFSTR("1")}).get()));
    EXPECT_FALSE(
        CFEqual(dictionary.get(), makeDictionary({CFSTR("a"), CFSTR("b")}, {CFSTR("1"), CFSTR("x")}).get()));
    EXPECT_FALSE(
        CFEqual(dictionary.get(), makeDictionary({CFSTR("a"), CFSTR("c")}, {CFSTR("1"), CFSTR("2")}).get()));
}

TEST(CFDictionary, GivesKeysAndValuesInTheSameOrder)
{
    const auto dictionary = makeDictionary({CFSTR("a"), CFSTR("b")}, {CFSTR("1"), CFSTR("2")});
    const void* keys[2] = {};
    const void* values[2] = {};
    CFDictionaryGetKeysAndValues(dictionary.get(), keys, values);
    EXPECT_NE(keys[0], keys[1]);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), keys[i]), values[i]);
    CFDictionaryGetKeysAndValues(dictionary.get(), nullptr, nullptr);
}

TEST(CFDictionary, AppliesAFunctionToEachEntry)
{
    const auto dictionary = makeDictionary({CFSTR("a"), CFSTR("b")}, {CFSTR("1"), CFSTR("2")});
    const auto seen = makeMutable();
    CFDictionaryApplyFunction(
        dictionary.get(),
        [](const void* key, const void* value, void* context) {
            CFDictionaryAddValue(static_cast<CFMutableDictionaryRef>(context), key, value);
        },
        seen.get());
    EXPECT_TRUE(CFEqual(seen.get(), dictionary.get()));
}

TEST(CFDictionary, IsDescribedByItsEntries)
{
    const auto inner = makeDictionary({CFSTR("a")}, {CFSTR("1")});
    const auto outer = makeDictionary({CFSTR("inner")}, {inner.get()});
    EXPECT_TRUE(CFEqual(cf::adopt(CFCopyDescription(outer.get())).get(), CFSTR("{inner = {a = 1}}")));
}

TEST(CFDictionaryDeathTest, EndsTheProcessWhenOneThatIsNotMutableIsChanged)
{
    const auto dictionary = makeDictionary({CFSTR("a")}, {CFSTR("1")});
    auto* const disguised = const_cast<CFMutableDictionaryRef>(dictionary.get());
    EXPECT_DEATH(CFDictionarySetValue(disguised, CFSTR("a"), CFSTR("2")), "is not mutable");
    EXPECT_DEATH(CFDictionaryRemoveAllValues(disguised), "is not mutable");
}

}  // namespace
