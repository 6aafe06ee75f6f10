// The parts of the library that can be wrong without a camera.
#include "Producer/EventQueue.h"
#include "Producer/HandleTable.h"
#include "Producer/Pacer.h"
#include "Producer/SendThread.h"
#include "Producer/SurfaceRing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

namespace pavo::producer {
namespace {

using testing::ElementsAre;

constexpr std::int64_t kSecond = 1'000'000'000;

TEST(Pacer, TheFirstFrameIsDueAtOnce)
{
    Pacer pacer({60, 1});
    EXPECT_EQ(pacer.next(5 * kSecond), 5 * kSecond);
}

TEST(Pacer, ErrorsDoNotAddUp)
{
    Pacer pacer({30000, 1001});
    std::int64_t due = 0;
    for (int i = 0; i <= 30'000 * 60; ++i)
        due = pacer.next(due);
    EXPECT_EQ(due, 1001 * 60 * kSecond);
}

TEST(Pacer, ALittleLateIsCaughtUpWith)
{
    Pacer pacer({10, 1});
    pacer.next(0);
    EXPECT_EQ(pacer.next(150'000'000), 100'000'000);
    EXPECT_EQ(pacer.next(300'000'000), 200'000'000) << "late by no more than a tenth of a second";
}

TEST(Pacer, VeryLateIsANewBeginning)
{
    Pacer pacer({10, 1});
    pacer.next(0);
    EXPECT_EQ(pacer.next(200'000'001), 200'000'001);
    EXPECT_EQ(pacer.next(200'000'001), 300'000'001);
}

TEST(Pacer, AnotherRateCountsFromTheLastFrame)
{
    Pacer pacer({10, 1});
    pacer.next(0);
    pacer.next(0);
    pacer.setRate({20, 1});
    EXPECT_EQ(pacer.next(0), 150'000'000);
    EXPECT_EQ(pacer.next(0), 200'000'000);
}

TEST(Pacer, TheLargestFractionsAreNoTrouble)
{
    Pacer pacer({UINT32_MAX, UINT32_MAX});
    std::int64_t due = pacer.next(0);
    for (int i = 0; i < 1000; ++i)
        due = pacer.next(due);
    EXPECT_EQ(due, 1000 * kSecond);
}

TEST(Rate, IsAboveZeroAndAtMostAThousand)
{
    EXPECT_TRUE((Rate{1000, 1}.isValid()));
    EXPECT_TRUE((Rate{1, UINT32_MAX}.isValid()));
    EXPECT_FALSE((Rate{1001, 1}.isValid()));
    EXPECT_FALSE((Rate{0, 1}.isValid()));
    EXPECT_FALSE((Rate{1, 0}.isValid()));
}

TEST(EventQueue, GivesBackInOrderAndRaisesItsFlagMeanwhile)
{
    EventQueue queue;
    EXPECT_FALSE(queue.pop());
    EXPECT_EQ(queue.flag().waitUntil(0), PAVO_TIMED_OUT);
    queue.push({PAVO_EVENT_SUBSCRIBED, 1});
    queue.push({PAVO_EVENT_SUBSCRIBED, 2});
    EXPECT_EQ(queue.flag().waitUntil(kNever), PAVO_OK);
    EXPECT_EQ(queue.pop()->pid, 1);
    EXPECT_EQ(queue.flag().waitUntil(0), PAVO_OK);
    EXPECT_EQ(queue.pop()->pid, 2);
    EXPECT_FALSE(queue.pop());
    EXPECT_EQ(queue.flag().waitUntil(0), PAVO_TIMED_OUT);
}

TEST(EventQueue, TheOldestGiveWayAndThatIsSaidOnce)
{
    EventQueue queue;
    const auto count = static_cast<std::int32_t>(EventQueue::kCapacity);
    for (std::int32_t i = 0; i < count + 2; ++i)
        queue.push({PAVO_EVENT_SUBSCRIBED, i});
    EXPECT_EQ(queue.pop()->type, static_cast<std::uint32_t>(PAVO_EVENT_MISSED));
    for (std::int32_t i = 2; i < count + 2; ++i)
        EXPECT_EQ(queue.pop()->pid, i);
    EXPECT_FALSE(queue.pop());
}

TEST(HandleTable, AHandleIsNeverUsedTwice)
{
    struct Handle;
    HandleTable<Handle, int> table;
    auto* const first = table.add(std::make_shared<int>(1));
    EXPECT_EQ(*table.find(first), 1);
    EXPECT_EQ(*table.remove(first), 1);
    EXPECT_EQ(table.remove(first), nullptr);
    auto* const second = table.add(std::make_shared<int>(2));
    EXPECT_NE(first, second);
    EXPECT_EQ(table.find(first), nullptr);
    EXPECT_EQ(table.find(nullptr), nullptr);
}

TEST(SendThread, SendsInOrderAndAllOfItBeforeItStops)
{
    std::vector<std::size_t> sent;
    {
        SendThread thread(8, [&sent](const SendThread::Item& item) { sent.push_back(item.place); });
        for (std::size_t i = 0; i < 8; ++i)
            thread.push({i, kCMTimingInfoInvalid});
    }
    EXPECT_THAT(sent, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

constexpr SurfaceRing::Format kSmall{PAVO_BGRA, 8, 8};

// Draws and sends the next frame; its surface's address, or null.
const std::uint8_t* sendNext(SurfaceRing& ring)
{
    const auto frame = ring.take();
    if (!frame) return nullptr;
    const auto place = ring.find(frame->id);
    EXPECT_TRUE(place);
    ring.endDrawing(*place);
    ring.endSending(*place, true);
    return frame->planes[0].data;
}

TEST(SurfaceRing, AFrameIsKnownWhileItIsDrawn)
{
    auto ring = SurfaceRing::create(kSmall, 2);
    ASSERT_TRUE(ring);
    const auto frame = ring->take();
    ASSERT_TRUE(frame);
    const auto place = ring->find(frame->id);
    ASSERT_TRUE(place);
    EXPECT_FALSE(ring->find(frame->id + 1));
    ring->endDrawing(*place);
    EXPECT_FALSE(ring->find(frame->id));
    ring->endSending(*place, true);
    EXPECT_FALSE(ring->find(frame->id));
}

TEST(SurfaceRing, ASurfaceIsNotGivenOutWhileItIsDrawnOrWaits)
{
    auto ring = SurfaceRing::create(kSmall, 2);
    const auto drawn = ring->take();
    const auto waiting = ring->take();
    ring->endDrawing(*ring->find(waiting->id));
    EXPECT_FALSE(ring->take());
    ring->discard(*ring->find(drawn->id));
    EXPECT_TRUE(ring->take());
}

TEST(SurfaceRing, GivesOutTheOneThatWasSentTheLongestTimeAgo)
{
    auto ring = SurfaceRing::create(kSmall, 6);
    std::vector<const std::uint8_t*> first, second;
    for (int i = 0; i < 6; ++i)
        first.push_back(sendNext(*ring));
    for (int i = 0; i < 6; ++i)
        second.push_back(sendNext(*ring));
    EXPECT_EQ(first, second);
}

TEST(SurfaceRing, KeepsTheLatestFramesBack)
{
    auto ring = SurfaceRing::create(kSmall, 4);
    for (int i = 0; i < 4; ++i)
        ASSERT_TRUE(sendNext(*ring));
    ASSERT_TRUE(ring->take()) << "one is older than those under way";
    EXPECT_FALSE(ring->take());
}

TEST(SurfaceRing, KeepsAwayFromSurfacesInUse)
{
    auto ring = SurfaceRing::create(kSmall, 5);
    for (std::size_t place = 1; place < 5; ++place)
        IOSurfaceIncrementUseCount(ring->surface(place));
    const auto* const only = sendNext(*ring);
    ASSERT_TRUE(only);
    EXPECT_FALSE(ring->take());
    IOSurfaceDecrementUseCount(ring->surface(1));
    const auto next = ring->take();
    ASSERT_TRUE(next);
    EXPECT_NE(next->planes[0].data, only);
    for (std::size_t place = 2; place < 5; ++place)
        IOSurfaceDecrementUseCount(ring->surface(place));
}

TEST(SurfaceRing, ReplacesWhatADeadCameraHasLeftInUseAndNothingElse)
{
    auto ring = SurfaceRing::create(kSmall, 5);
    const auto drawn = ring->take();
    const auto drawnPlace = *ring->find(drawn->id);
    std::vector<cf::Ref<IOSurfaceRef>> before;
    for (std::size_t place = 0; place < 5; ++place)
        before.push_back(cf::retain(ring->surface(place)));
    IOSurfaceIncrementUseCount(before[drawnPlace].get());
    IOSurfaceIncrementUseCount(before[3].get());
    ring->forgetCamera();
    for (std::size_t place = 0; place < 5; ++place)
        EXPECT_EQ(ring->surface(place) == before[place].get(), place != 3) << place;
    EXPECT_EQ(*ring->find(drawn->id), drawnPlace);
    IOSurfaceDecrementUseCount(before[drawnPlace].get());
    IOSurfaceDecrementUseCount(before[3].get());
}

TEST(SurfaceRing, WhatWasNotSentIsNotKeptBack)
{
    auto ring = SurfaceRing::create(kSmall, 1);
    for (int i = 0; i < 3; ++i) {
        const auto frame = ring->take();
        ASSERT_TRUE(frame) << i;
        const auto place = *ring->find(frame->id);
        ring->endDrawing(place);
        ring->endSending(place, false);
    }
}

TEST(SurfaceRing, AnUnmakeableSizeGivesNone)
{
    EXPECT_FALSE(SurfaceRing::create({PAVO_BGRA, 100'000, 100'000}, 1));
}

}  // namespace
}  // namespace pavo::producer
