#include <mach/mach_time.h>

#include <gtest/gtest.h>

#include <ctime>

extern "C" kern_return_t useFromC(void);

namespace {

std::uint64_t monotonicNanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(now.tv_nsec);
}

TEST(MachTime, IsTheMonotonicClock)
{
    const auto before = monotonicNanoseconds();
    const auto now = mach_absolute_time();
    const auto after = monotonicNanoseconds();
    EXPECT_GE(now, before);
    EXPECT_LE(now, after);
}

TEST(MachTime, ATickIsANanosecond)
{
    mach_timebase_info_data_t timebase = {};
    EXPECT_EQ(mach_timebase_info(&timebase), KERN_SUCCESS);
    EXPECT_EQ(timebase.numer, 1U);
    EXPECT_EQ(timebase.denom, 1U);
}

TEST(MachTime, NeedsAPlaceForTheTimebase)
{
    EXPECT_EQ(mach_timebase_info(nullptr), KERN_INVALID_ARGUMENT);
}

TEST(MachTime, IsUsableFromC)
{
    EXPECT_EQ(useFromC(), KERN_SUCCESS);
}

}  // namespace
