#include "Platform/CoreMediaIO/linux/FrameTally.h"

#include <gtest/gtest.h>

namespace cmio {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const FrameTally::Clock::time_point kStart = FrameTally::Clock::now();

// Frames from `begin` on, one each `period`; gives back when the last one was drawn.
FrameTally::Clock::time_point drawFrames(FrameTally& tally, int count, milliseconds period,
                                         FrameTally::Clock::time_point begin = kStart)
{
    for (int index = 0; index < count; ++index)
        tally.drawn(false, begin + index * period);
    return begin + (count - 1) * period;
}

TEST(FrameTally, BeginsWithNothing)
{
    const auto counts = FrameTally().counts();
    EXPECT_EQ(counts.sent + counts.drawn + counts.dropped(), 0U);
    EXPECT_EQ(counts.framesPerSecond, 0);
    EXPECT_FALSE(counts.isForeign);
}

TEST(FrameTally, CountsEachEndOfAFrameByItself)
{
    FrameTally tally;
    for (int i = 0; i < 10; ++i)
        tally.sent();
    tally.drawn(false);
    const auto drop = [&tally](FrameTally::Drop reason, int times) {
        for (int i = 0; i < times; ++i)
            tally.dropped(reason);
    };
    drop(FrameTally::Drop::replaced, 1);
    drop(FrameTally::Drop::withoutBuffer, 2);
    drop(FrameTally::Drop::unusable, 3);
    drop(FrameTally::Drop::unwatched, 4);
    const auto counts = tally.counts();
    EXPECT_EQ(counts.sent, 10U);
    EXPECT_EQ(counts.drawn, 1U);
    EXPECT_EQ(counts.replaced, 1U);
    EXPECT_EQ(counts.withoutBuffer, 2U);
    EXPECT_EQ(counts.unusable, 3U);
    EXPECT_EQ(counts.unwatched, 4U);
    EXPECT_EQ(counts.dropped(), 10U);
}

TEST(FrameTally, RemembersWhoseTheLastFrameWas)
{
    FrameTally tally;
    tally.drawn(true);
    EXPECT_TRUE(tally.counts().isForeign);
    tally.drawn(false);
    EXPECT_FALSE(tally.counts().isForeign);
}

TEST(FrameTally, OneFrameHasNoRate)
{
    FrameTally tally;
    tally.drawn(false, kStart);
    EXPECT_EQ(tally.counts(kStart).framesPerSecond, 0);
}

TEST(FrameTally, GivesTheRateOfEvenFrames)
{
    for (const int rate : {1, 10, 50, 100, 500}) {
        FrameTally tally;
        const auto end = drawFrames(tally, 2000, milliseconds(1000 / rate));
        EXPECT_NEAR(tally.counts(end).framesPerSecond, rate, 1e-6);
        EXPECT_NEAR(tally.counts(end + milliseconds(1)).framesPerSecond, rate, 1e-6);
    }
}

TEST(FrameTally, KnowsTheRateFromTheSecondFrameOn)
{
    FrameTally tally;
    const auto end = drawFrames(tally, 2, milliseconds(20));
    EXPECT_NEAR(tally.counts(end).framesPerSecond, 50, 1e-6);
}

TEST(FrameTally, LooksAtTheLastTwoSecondsOnly)
{
    FrameTally tally;
    const auto slow = drawFrames(tally, 20, milliseconds(500));
    const auto end = drawFrames(tally, 101, milliseconds(20), slow + seconds(10));
    EXPECT_NEAR(tally.counts(end).framesPerSecond, 50, 1e-6);
}

TEST(FrameTally, TheRateFallsWhenFramesStopComing)
{
    FrameTally tally;
    const auto end = drawFrames(tally, 200, milliseconds(10));
    const double soon = tally.counts(end + milliseconds(100)).framesPerSecond;
    const double later = tally.counts(end + milliseconds(1000)).framesPerSecond;
    EXPECT_LT(soon, 100);
    EXPECT_LT(later, 60);
    EXPECT_GT(later, 40);
    EXPECT_EQ(tally.counts(end + seconds(2)).framesPerSecond, 0);
}

TEST(FrameTally, FramesThatCameAllAtOnceHaveNoRate)
{
    FrameTally tally;
    drawFrames(tally, 10, milliseconds(0));
    EXPECT_EQ(tally.counts(kStart).framesPerSecond, 0);
}

}  // namespace
}  // namespace cmio
