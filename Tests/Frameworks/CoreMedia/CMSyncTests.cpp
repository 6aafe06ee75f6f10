#include <CoreMedia/CoreMedia.h>

#include <gtest/gtest.h>

namespace {

TEST(CMClock, OfTheHostIsAlwaysTheSame)
{
    const auto clock = CMClockGetHostTimeClock();
    ASSERT_NE(clock, nullptr);
    EXPECT_EQ(CMClockGetHostTimeClock(), clock);
    EXPECT_EQ(CFGetTypeID(clock), CMClockGetTypeID());
}

TEST(CMClock, OfTheHostNeverGoesBack)
{
    const auto clock = CMClockGetHostTimeClock();
    auto last = CMClockGetTime(clock);
    ASSERT_TRUE(CMTIME_IS_NUMERIC(last));
    for (int i = 0; i < 1000; ++i) {
        const auto now = CMClockGetTime(clock);
        EXPECT_GE(CMTimeCompare(now, last), 0);
        last = now;
    }
}

}  // namespace
