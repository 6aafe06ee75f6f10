#include <dispatch/dispatch.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>

namespace {

constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
constexpr auto kLeast = std::numeric_limits<std::int64_t>::min();

std::uint64_t hostNanoseconds()
{
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::nanoseconds(time).count());
}

TEST(DispatchTime, IsTheHostClocks)
{
    const auto before = hostNanoseconds();
    const auto time = dispatch_time(DISPATCH_TIME_NOW, 0);
    const auto after = hostNanoseconds();
    EXPECT_GE(time, before);
    EXPECT_LE(time, after);
}

TEST(DispatchTime, CountsNanoseconds)
{
    EXPECT_EQ(dispatch_time(1000, 500), 1500U);
    EXPECT_EQ(dispatch_time(1000, -500), 500U);
    const auto before = hostNanoseconds();
    EXPECT_GE(dispatch_time(DISPATCH_TIME_NOW, NSEC_PER_SEC), before + NSEC_PER_SEC);
    const auto justNow = dispatch_time(DISPATCH_TIME_NOW, -1);
    EXPECT_LT(justNow, hostNanoseconds());
}

TEST(DispatchTime, IsForEverBeyondItsEnd)
{
    EXPECT_EQ(dispatch_time(DISPATCH_TIME_FOREVER, 0), DISPATCH_TIME_FOREVER);
    EXPECT_EQ(dispatch_time(DISPATCH_TIME_FOREVER, -1), DISPATCH_TIME_FOREVER);
    EXPECT_EQ(dispatch_time(DISPATCH_TIME_NOW, kMost), DISPATCH_TIME_FOREVER);
    EXPECT_EQ(dispatch_time(1, kMost), DISPATCH_TIME_FOREVER);
    EXPECT_EQ(dispatch_time(1, kMost - 1), static_cast<dispatch_time_t>(kMost));
}

// 0 would mean now, which keeps moving.
TEST(DispatchTime, IsNeverBeforeTheClocksStart)
{
    EXPECT_EQ(dispatch_time(1000, -1000), 1U);
    EXPECT_EQ(dispatch_time(1000, kLeast), 1U);
    EXPECT_EQ(dispatch_time(DISPATCH_TIME_NOW, kLeast), 1U);
}

}  // namespace
