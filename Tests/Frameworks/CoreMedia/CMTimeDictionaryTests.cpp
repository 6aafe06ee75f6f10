#include "Platform/Support/Ref.h"

#include <CoreMedia/CoreMedia.h>

#include <gtest/gtest.h>

#include <limits>

namespace {

constexpr std::int64_t kMaxValue = std::numeric_limits<std::int64_t>::max();

std::int64_t numberIn(CFDictionaryRef dictionary, const char* key)
{
    const auto name = cf::adopt(CFStringCreateWithCString(kCFAllocatorDefault, key, kCFStringEncodingUTF8));
    std::int64_t value = -1;
    const auto* number = static_cast<CFNumberRef>(CFDictionaryGetValue(dictionary, name.get()));
    if (number) CFNumberGetValue(number, kCFNumberSInt64Type, &value);
    return value;
}

void expectSame(CMTime actual, CMTime expected)
{
    EXPECT_EQ(actual.value, expected.value);
    EXPECT_EQ(actual.timescale, expected.timescale);
    EXPECT_EQ(actual.flags, expected.flags);
    EXPECT_EQ(actual.epoch, expected.epoch);
}

TEST(CMTimeDictionary, HoldsEveryFieldUnderItsName)
{
    const CMTime time = {100, 3000, 3, -7};
    const auto dictionary = cf::adopt(CMTimeCopyAsDictionary(time, kCFAllocatorDefault));
    ASSERT_TRUE(dictionary);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 4);
    EXPECT_EQ(numberIn(dictionary.get(), "value"), 100);
    EXPECT_EQ(numberIn(dictionary.get(), "timescale"), 3000);
    EXPECT_EQ(numberIn(dictionary.get(), "flags"), 3);
    EXPECT_EQ(numberIn(dictionary.get(), "epoch"), -7);
}

TEST(CMTimeDictionary, GivesTheSameTimeBack)
{
    for (const CMTime time :
         {CMTimeMake(100, 3000), kCMTimeInvalid, kCMTimeIndefinite, kCMTimeNegativeInfinity,
          CMTime{kMaxValue, kCMTimeMaxTimescale, 0xFFFFFFFFU, std::numeric_limits<std::int64_t>::min()}}) {
        const auto dictionary = cf::adopt(CMTimeCopyAsDictionary(time, kCFAllocatorDefault));
        expectSame(CMTimeMakeFromDictionary(dictionary.get()), time);
    }
}

TEST(CMTimeDictionary, IsInvalidWithoutADictionary)
{
    expectSame(CMTimeMakeFromDictionary(nullptr), kCMTimeInvalid);
}

// A dictionary of a time, with one entry replaced, or taken out for a null value.
cf::Ref<CFMutableDictionaryRef> changedDictionary(CFStringRef key, CFTypeRef value)
{
    const auto whole = cf::adopt(CMTimeCopyAsDictionary(CMTimeMake(1, 2), kCFAllocatorDefault));
    auto changed = cf::adopt(CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, whole.get()));
    if (value)
        CFDictionarySetValue(changed.get(), key, value);
    else
        CFDictionaryRemoveValue(changed.get(), key);
    return changed;
}

TEST(CMTimeDictionary, IsInvalidWhereANumberIsMissingOrNone)
{
    for (const CFStringRef key : {kCMTimeValueKey, kCMTimeScaleKey, kCMTimeFlagsKey, kCMTimeEpochKey}) {
        expectSame(CMTimeMakeFromDictionary(changedDictionary(key, nullptr).get()), kCMTimeInvalid);
        expectSame(CMTimeMakeFromDictionary(changedDictionary(key, key).get()), kCMTimeInvalid);
    }
}

TEST(CMTimeDictionary, IsInvalidWhereANumberDoesNotFit)
{
    const auto large = cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &kMaxValue));
    for (const CFStringRef key : {kCMTimeScaleKey, kCMTimeFlagsKey})
        expectSame(CMTimeMakeFromDictionary(changedDictionary(key, large.get()).get()), kCMTimeInvalid);
}

}  // namespace
