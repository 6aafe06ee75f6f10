#include <CoreMedia/CoreMedia.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

extern "C" Float64 secondsFromC(void);

namespace {

static_assert(sizeof(CMTime) == 24 && alignof(CMTime) == 4);
static_assert(offsetof(CMTime, value) == 0 && offsetof(CMTime, timescale) == 8);
static_assert(offsetof(CMTime, flags) == 12 && offsetof(CMTime, epoch) == 16);
static_assert(sizeof(CMSampleTimingInfo) == 72);
static_assert(kCMTimeFlags_Valid == 1 && kCMTimeFlags_HasBeenRounded == 2);
static_assert(kCMTimeFlags_PositiveInfinity == 4 && kCMTimeFlags_NegativeInfinity == 8);
static_assert(kCMTimeFlags_Indefinite == 16 && kCMTimeFlags_ImpliedValueFlagsMask == 28);
static_assert(kCMTimeMaxTimescale == 0x7fffffff);

constexpr std::int64_t kMaxValue = std::numeric_limits<std::int64_t>::max();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

void expectTime(CMTime time, std::int64_t value, std::int32_t timescale, bool hasBeenRounded = false,
                std::int64_t epoch = 0)
{
    EXPECT_EQ(time.value, value);
    EXPECT_EQ(time.timescale, timescale);
    EXPECT_EQ(time.flags, CMTimeFlags(hasBeenRounded ? 3 : 1));
    EXPECT_EQ(time.epoch, epoch);
}

TEST(CMTime, ConstantsHaveTheirFlags)
{
    EXPECT_EQ(kCMTimeInvalid.flags, 0u);
    EXPECT_EQ(kCMTimeZero.flags, 1u);
    EXPECT_EQ(kCMTimeZero.value, 0);
    EXPECT_EQ(kCMTimeIndefinite.flags, 17u);
    EXPECT_EQ(kCMTimePositiveInfinity.flags, 5u);
    EXPECT_EQ(kCMTimeNegativeInfinity.flags, 9u);
}

TEST(CMTime, MacrosTellTheKindsApart)
{
    EXPECT_TRUE(CMTIME_IS_VALID(kCMTimeZero));
    EXPECT_TRUE(CMTIME_IS_INVALID(kCMTimeInvalid));
    EXPECT_TRUE(CMTIME_IS_NUMERIC(kCMTimeZero));
    EXPECT_FALSE(CMTIME_IS_NUMERIC(kCMTimeIndefinite));
    EXPECT_FALSE(CMTIME_IS_NUMERIC(kCMTimePositiveInfinity));
    EXPECT_FALSE(CMTIME_IS_NUMERIC(kCMTimeInvalid));
    EXPECT_TRUE(CMTIME_IS_POSITIVE_INFINITY(kCMTimePositiveInfinity));
    EXPECT_FALSE(CMTIME_IS_POSITIVE_INFINITY(kCMTimeNegativeInfinity));
    EXPECT_TRUE(CMTIME_IS_NEGATIVE_INFINITY(kCMTimeNegativeInfinity));
    EXPECT_TRUE(CMTIME_IS_INDEFINITE(kCMTimeIndefinite));
    EXPECT_FALSE(CMTIME_HAS_BEEN_ROUNDED(kCMTimeZero));
}

TEST(CMTime, IsMadeOfValueTimescaleAndEpoch)
{
    expectTime(CMTimeMake(5, 30), 5, 30);
    expectTime(CMTimeMakeWithEpoch(5, 30, 7), 5, 30, false, 7);
}

TEST(CMTimeMakeWithSeconds, IsExactForTheFrameRatesInUse)
{
    expectTime(CMTimeMakeWithSeconds(1.0 / 30.0, 3000), 100, 3000);
    expectTime(CMTimeMakeWithSeconds(1.0 / 60.0, 6000), 100, 6000);
}

TEST(CMTimeMakeWithSeconds, TruncatesTowardZeroAndSaysSo)
{
    expectTime(CMTimeMakeWithSeconds(2.870, 1), 2, 1, true);
    expectTime(CMTimeMakeWithSeconds(7.581, 1), 7, 1, true);
    expectTime(CMTimeMakeWithSeconds(0.082, 24), 1, 24, true);
    expectTime(CMTimeMakeWithSeconds(2.368, 24), 56, 24, true);
    expectTime(CMTimeMakeWithSeconds(-2.870, 1), -2, 1, true);
}

TEST(CMTimeMakeWithSeconds, NeedsAPositiveTimescale)
{
    EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMakeWithSeconds(1.0, 0)));
    EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMakeWithSeconds(1.0, -30)));
}

TEST(CMTimeMakeWithSeconds, HalvesTheTimescaleUntilTheValueFits)
{
    // 2^62 seconds: twice that many ticks would be 2^63.
    const auto time = CMTimeMakeWithSeconds(std::ldexp(1.0, 62), 4);
    expectTime(time, std::int64_t{1} << 62, 1);
}

TEST(CMTimeMakeWithSeconds, GivesInfinityWhereNoTimescaleFits)
{
    EXPECT_TRUE(CMTIME_IS_POSITIVE_INFINITY(CMTimeMakeWithSeconds(std::ldexp(1.0, 63), 600)));
    EXPECT_TRUE(CMTIME_IS_NEGATIVE_INFINITY(CMTimeMakeWithSeconds(std::ldexp(-1.0, 64), 600)));
    EXPECT_TRUE(CMTIME_IS_POSITIVE_INFINITY(CMTimeMakeWithSeconds(kInfinity, 600)));
    EXPECT_TRUE(CMTIME_IS_NEGATIVE_INFINITY(CMTimeMakeWithSeconds(-kInfinity, 600)));
}

TEST(CMTimeGetSeconds, DividesByTheTimescaleAndIgnoresTheEpoch)
{
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(CMTimeMake(1, 4)), 0.25);
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(CMTimeMake(-6, 4)), -1.5);
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(CMTimeMakeWithEpoch(1, 4, 9)), 0.25);
}

TEST(CMTimeGetSeconds, KnowsTimesThatAreNoNumbers)
{
    EXPECT_TRUE(std::isnan(CMTimeGetSeconds(kCMTimeInvalid)));
    EXPECT_TRUE(std::isnan(CMTimeGetSeconds(kCMTimeIndefinite)));
    EXPECT_EQ(CMTimeGetSeconds(kCMTimePositiveInfinity), kInfinity);
    EXPECT_EQ(CMTimeGetSeconds(kCMTimeNegativeInfinity), -kInfinity);
}

TEST(CMTimeArithmetic, KeepsACommonTimescale)
{
    expectTime(CMTimeAdd(CMTimeMake(5, 30), CMTimeMake(7, 30)), 12, 30);
    expectTime(CMTimeSubtract(CMTimeMake(5, 30), CMTimeMake(7, 30)), -2, 30);
}

TEST(CMTimeArithmetic, FindsTheLeastCommonTimescale)
{
    expectTime(CMTimeAdd(CMTimeMake(1, 4), CMTimeMake(1, 6)), 5, 12);
    expectTime(CMTimeSubtract(CMTimeMake(1, 4), CMTimeMake(1, 6)), 1, 12);
}

TEST(CMTimeArithmetic, RoundsWhereThereIsNoCommonTimescale)
{
    const auto sum = CMTimeAdd(CMTimeMake(1, 2147483647), CMTimeMake(1, 2147483646));
    expectTime(sum, 2, 2147483647, true);
}

TEST(CMTimeArithmetic, RemembersThatATermWasRounded)
{
    const auto rounded = CMTimeMakeWithSeconds(0.082, 24);
    EXPECT_TRUE(CMTIME_HAS_BEEN_ROUNDED(CMTimeAdd(rounded, CMTimeMake(1, 24))));
}

TEST(CMTimeArithmetic, HalvesTheTimescaleOfASumThatDoesNotFit)
{
    const auto sum = CMTimeAdd(CMTimeMake(kMaxValue - 1, 4), CMTimeMake(kMaxValue - 1, 4));
    expectTime(sum, kMaxValue - 1, 2, true);
}

TEST(CMTimeArithmetic, GivesInfinityForASumThatFitsNowhere)
{
    EXPECT_TRUE(CMTIME_IS_POSITIVE_INFINITY(CMTimeAdd(CMTimeMake(kMaxValue, 1), CMTimeMake(1, 1))));
    EXPECT_TRUE(CMTIME_IS_NEGATIVE_INFINITY(CMTimeSubtract(CMTimeMake(-kMaxValue, 1), CMTimeMake(2, 1))));
}

TEST(CMTimeArithmetic, CalculatesWithInfinity)
{
    const auto one = CMTimeMake(1, 1);
    EXPECT_TRUE(CMTIME_IS_POSITIVE_INFINITY(CMTimeAdd(kCMTimePositiveInfinity, one)));
    EXPECT_TRUE(CMTIME_IS_POSITIVE_INFINITY(CMTimeAdd(kCMTimePositiveInfinity, kCMTimePositiveInfinity)));
    EXPECT_TRUE(CMTIME_IS_NEGATIVE_INFINITY(CMTimeSubtract(one, kCMTimePositiveInfinity)));
    EXPECT_TRUE(CMTIME_IS_INDEFINITE(CMTimeAdd(kCMTimePositiveInfinity, kCMTimeNegativeInfinity)));
    EXPECT_TRUE(CMTIME_IS_INDEFINITE(CMTimeAdd(kCMTimeIndefinite, one)));
    EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeAdd(kCMTimeIndefinite, kCMTimeInvalid)));
    EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeSubtract(one, kCMTimeInvalid)));
}

TEST(CMTimeArithmetic, AddsADurationToATimeOfAnyEpoch)
{
    expectTime(CMTimeAdd(CMTimeMakeWithEpoch(5, 30, 2), CMTimeMake(1, 30)), 6, 30, false, 2);
    expectTime(CMTimeAdd(CMTimeMake(1, 30), CMTimeMakeWithEpoch(5, 30, 2)), 6, 30, false, 2);
    EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeAdd(CMTimeMakeWithEpoch(5, 30, 2), CMTimeMakeWithEpoch(1, 30, 3))));
}

TEST(CMTimeArithmetic, SubtractsTwoTimesOfOneEpochToADuration)
{
    expectTime(CMTimeSubtract(CMTimeMakeWithEpoch(5, 30, 2), CMTimeMakeWithEpoch(1, 30, 2)), 4, 30);
    expectTime(CMTimeSubtract(CMTimeMakeWithEpoch(5, 30, 2), CMTimeMake(1, 30)), 4, 30, false, 2);
    EXPECT_TRUE(
        CMTIME_IS_INVALID(CMTimeSubtract(CMTimeMakeWithEpoch(5, 30, 2), CMTimeMakeWithEpoch(1, 30, 3))));
}

TEST(CMTimeCompare, ComparesAcrossTimescales)
{
    EXPECT_EQ(CMTimeCompare(CMTimeMake(1, 2), CMTimeMake(2, 4)), 0);
    EXPECT_EQ(CMTimeCompare(CMTimeMake(1, 3), CMTimeMake(1, 2)), -1);
    EXPECT_EQ(CMTimeCompare(CMTimeMake(kMaxValue, 1), CMTimeMake(kMaxValue, 2)), 1);
}

TEST(CMTimeCompare, OrdersTheKindsOfTimes)
{
    const std::vector<CMTime> ascending = {
        kCMTimeNegativeInfinity, CMTimeMake(-1, 1),       CMTimeMake(1, 1), CMTimeMakeWithEpoch(-1, 1, 1),
        kCMTimeIndefinite,       kCMTimePositiveInfinity, kCMTimeInvalid};
    for (std::size_t i = 0; i < ascending.size(); ++i)
        for (std::size_t j = 0; j < ascending.size(); ++j)
            EXPECT_EQ(CMTimeCompare(ascending[i], ascending[j]), i < j   ? -1
                                                                 : i > j ? 1
                                                                         : 0)
                << i << " and " << j;
}

TEST(CMTime, CanBeUsedFromC)
{
    EXPECT_DOUBLE_EQ(secondsFromC(), 1.5);
}

}  // namespace
