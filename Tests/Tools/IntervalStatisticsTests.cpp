#include "Tools/IntervalStatistics.h"

#include <gtest/gtest.h>

namespace pavo::tools {
namespace {

constexpr std::int64_t kMillisecond = 1'000'000;

TEST(IntervalStatistics, HasNothingToSayBeforeTheSecondFrame)
{
    IntervalStatistics statistics;
    EXPECT_EQ(statistics.summary().frames, 0U);
    statistics.add(5 * kMillisecond);
    const auto summary = statistics.summary();
    EXPECT_EQ(summary.frames, 1U);
    EXPECT_EQ(summary.framesPerSecond, 0);
    EXPECT_EQ(summary.longestMs, 0);
    EXPECT_EQ(summary.medianMs, 0);
    EXPECT_EQ(summary.percentile99Ms, 0);
}

TEST(IntervalStatistics, CountsTheRateBetweenTheFirstFrameAndTheLast)
{
    IntervalStatistics statistics;
    for (int i = 0; i <= 100; ++i)
        statistics.add(1'000'000'000'000 + i * 20 * kMillisecond);
    const auto summary = statistics.summary();
    EXPECT_EQ(summary.frames, 101U);
    EXPECT_DOUBLE_EQ(summary.framesPerSecond, 50);
    EXPECT_DOUBLE_EQ(summary.longestMs, 20);
    EXPECT_DOUBLE_EQ(summary.medianMs, 20);
    EXPECT_DOUBLE_EQ(summary.percentile99Ms, 20);
}

TEST(IntervalStatistics, FindsTheMedianAndTheLongest)
{
    IntervalStatistics statistics;
    std::int64_t now = 0;
    statistics.add(now);
    for (const int interval : {40, 10, 30, 20})
        statistics.add(now += interval * kMillisecond);
    const auto summary = statistics.summary();
    EXPECT_DOUBLE_EQ(summary.medianMs, 20) << "the lower one of the two in the middle";
    EXPECT_DOUBLE_EQ(summary.longestMs, 40);
    EXPECT_DOUBLE_EQ(summary.framesPerSecond, 40);
}

TEST(IntervalStatistics, LeavesOneInAHundredOutOfThe99thPercentile)
{
    IntervalStatistics statistics;
    std::int64_t now = 0;
    statistics.add(now);
    for (int i = 1; i <= 100; ++i)
        statistics.add(now += i * kMillisecond);
    EXPECT_DOUBLE_EQ(statistics.summary().percentile99Ms, 99);
    statistics.add(now += 101 * kMillisecond);
    EXPECT_DOUBLE_EQ(statistics.summary().percentile99Ms, 100) << "100 of 101 are more than 99 %";
}

TEST(IntervalStatistics, RemembersTheLongestWhenItForgetsOldIntervals)
{
    IntervalStatistics statistics;
    std::int64_t now = 0;
    statistics.add(now);
    statistics.add(now += 500 * kMillisecond);
    for (int i = 0; i < 40'000; ++i)
        statistics.add(now += kMillisecond);
    const auto summary = statistics.summary();
    EXPECT_EQ(summary.frames, 40'002U);
    EXPECT_DOUBLE_EQ(summary.longestMs, 500);
    EXPECT_DOUBLE_EQ(summary.percentile99Ms, 1);
}

TEST(IntervalStatistics, HasNoRateForFramesThatCameAtOnce)
{
    IntervalStatistics statistics;
    statistics.add(7);
    statistics.add(7);
    EXPECT_EQ(statistics.summary().framesPerSecond, 0);
}

}  // namespace
}  // namespace pavo::tools
