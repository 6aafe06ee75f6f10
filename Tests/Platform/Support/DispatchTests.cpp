#include "Platform/Support/Dispatch.h"
#include "Tests/Support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace {

using pavo::test::waitFor;

constexpr std::uint64_t kMillisecond = 1'000'000;

dispatch_queue_t urgentQueue()
{
    return dispatch_get_global_queue(QOS_CLASS_USER_INTERACTIVE, 0);
}

// Counts the finalizers of the queue that it makes.
class WatchedQueue {
public:
    dispatch::Queue make()
    {
        auto queue = dispatch::Queue::serial("watched");
        dispatch_set_context(queue.get(), this);
        dispatch_set_finalizer_f(queue.get(),
                                 [](void* context) { static_cast<WatchedQueue*>(context)->isGone_ = true; });
        return queue;
    }
    bool isGone() const { return isGone_; }
    bool waitUntilGone() const
    {
        return waitFor([this] { return isGone(); });
    }

private:
    std::atomic<bool> isGone_ = false;
};

TEST(DispatchClosures, HoldAQueueAsLongAsAnyHandleDoes)
{
    WatchedQueue watched;
    auto first = watched.make();
    auto copy = first;
    auto moved = std::move(first);
    EXPECT_EQ(first.get(), nullptr);
    EXPECT_EQ(copy.get(), moved.get());
    auto retained = dispatch::Queue::retain(copy.get());

    copy = {};
    moved = dispatch::Queue::serial("another");
    EXPECT_FALSE(watched.isGone());
    retained = {};
    EXPECT_TRUE(watched.waitUntilGone());
}

TEST(DispatchClosures, MakeQueuesOfTheirQualityOfService)
{
    const auto urgent = dispatch::Queue::serial("urgent", QOS_CLASS_USER_INTERACTIVE);
    const auto ordinary = dispatch::Queue::serial("ordinary");
    std::latch bothRan(2);
    dispatch::async(urgent.get(), [&] {
        dispatch_assert_queue(urgentQueue());
        bothRan.count_down();
    });
    dispatch::async(ordinary.get(), [&] {
        dispatch_assert_queue(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0));
        bothRan.count_down();
    });
    EXPECT_TRUE(waitFor([&] { return bothRan.try_wait(); }));
}

TEST(DispatchClosures, RunOnceOnTheQueueAndAreDestroyed)
{
    const auto queue = dispatch::Queue::serial("serial");
    auto owned = std::make_unique<int>(1);
    auto shared = std::make_shared<int>(2);
    const std::weak_ptr<int> weak = shared;
    std::atomic<int> sum = 0;
    dispatch::async(queue.get(), [&sum, &queue, owned = std::move(owned), shared = std::move(shared)] {
        dispatch_assert_queue(queue.get());
        sum += *owned + *shared;
    });
    EXPECT_TRUE(waitFor([&] { return weak.expired(); }));
    EXPECT_EQ(sum, 3);
}

TEST(DispatchClosures, RunLaterAndAreDestroyed)
{
    const auto queue = dispatch::Queue::serial("serial");
    auto shared = std::make_shared<int>(2);
    const std::weak_ptr<int> weak = shared;
    const auto due = dispatch_time(DISPATCH_TIME_NOW, kMillisecond);
    std::atomic<dispatch_time_t> ranAt = 0;
    dispatch::after(due, queue.get(),
                    [&ranAt, shared = std::move(shared)] { ranAt = dispatch_time(DISPATCH_TIME_NOW, 0); });
    EXPECT_TRUE(waitFor([&] { return weak.expired(); }));
    EXPECT_GE(ranAt, due);
}

TEST(DispatchClosures, RunInPlaceWhenTheyAreWaitedFor)
{
    const auto queue = dispatch::Queue::serial("serial");
    int value = 1;
    const auto assign = [&value, &queue] {
        dispatch_assert_queue(queue.get());
        value = 2;
    };
    dispatch::sync(queue.get(), assign);
    EXPECT_EQ(value, 2);

    int callCount = 0;
    auto counter = [&callCount, own = 0]() mutable { callCount = ++own; };
    dispatch::sync(queue.get(), counter);
    dispatch::sync(queue.get(), counter);
    EXPECT_EQ(callCount, 2);  // the caller's own closure, not a copy
}

static_assert(!std::is_copy_constructible_v<dispatch::TimerSource>);

TEST(DispatchTimerHandle, FiresWhileResumed)
{
    const auto queue = dispatch::Queue::serial("timer");
    std::atomic<int> count = 0;
    dispatch::TimerSource timer(queue.get());
    timer.setEventHandler([&count] { ++count; });
    timer.schedule(DISPATCH_TIME_NOW, kMillisecond);
    timer.resume();
    EXPECT_TRUE(waitFor([&] { return count >= 3; }));
    timer.suspend();
    timer.resume();
    const int before = count;
    EXPECT_TRUE(waitFor([&] { return count >= before + 3; }));
    timer.cancel();
    dispatch::sync(queue.get(), [] {});
}

TEST(DispatchTimerHandle, MayBeLetGoOfInAnyState)
{
    // Each would end the process if the handle did not keep the platform's rules.
    dispatch::TimerSource neverResumed(urgentQueue());
    dispatch::TimerSource resumed(urgentQueue());
    resumed.resume();
    dispatch::TimerSource suspended(urgentQueue());
    suspended.resume();
    suspended.suspend();
    dispatch::TimerSource cancelledWhileSuspended(urgentQueue());
    cancelledWhileSuspended.cancel();
    dispatch::TimerSource cancelledWhileResumed(urgentQueue());
    cancelledWhileResumed.resume();
    cancelledWhileResumed.cancel();
}

TEST(DispatchTimerHandle, DoesNothingWithAnEmptyHandler)
{
    const auto queue = dispatch::Queue::serial("timer");
    std::atomic<int> count = 0;
    std::atomic<int> referenceCount = 0;
    dispatch::TimerSource timer(queue.get());
    dispatch::TimerSource reference(queue.get());
    timer.setEventHandler([&count] { ++count; });
    reference.setEventHandler([&referenceCount] { ++referenceCount; });
    timer.schedule(DISPATCH_TIME_NOW, kMillisecond);
    reference.schedule(DISPATCH_TIME_NOW, kMillisecond);
    timer.resume();
    ASSERT_TRUE(waitFor([&] { return count >= 1; }));

    dispatch::sync(queue.get(), [&] { timer.setEventHandler({}); });
    const int before = count;
    reference.resume();
    EXPECT_TRUE(waitFor([&] { return referenceCount >= 5; }));
    EXPECT_EQ(count, before);
    timer.setEventHandler([&count] { ++count; });
    EXPECT_TRUE(waitFor([&] { return count > before; }));
    dispatch::sync(queue.get(), [&] {
        timer.setEventHandler({});
        reference.setEventHandler({});
    });
}

TEST(DispatchTimerHandle, KeepsTheHandlerOfAFireUnderWay)
{
    std::latch isFiring(1);
    std::latch release(1);
    auto shared = std::make_shared<int>(0);
    const std::weak_ptr<int> weak = shared;
    std::atomic<bool> isKept = false;
    {
        dispatch::TimerSource timer(urgentQueue());
        timer.setEventHandler([&isFiring, &release, &isKept, shared = std::move(shared)] {
            isFiring.count_down();
            release.wait();
            isKept = *shared == 0;
        });
        timer.schedule(DISPATCH_TIME_NOW, DISPATCH_TIME_FOREVER);
        timer.resume();
        isFiring.wait();
        timer.setEventHandler({});
    }
    EXPECT_FALSE(weak.expired());
    release.count_down();
    EXPECT_TRUE(waitFor([&] { return weak.expired(); }));
    EXPECT_TRUE(isKept);
}

TEST(DispatchTimerHandle, MayBeLetGoOfByItsOwnHandler)
{
    std::atomic<int> count = 0;
    auto shared = std::make_shared<int>(0);
    const std::weak_ptr<int> weak = shared;
    auto* const timer = new dispatch::TimerSource(urgentQueue());
    timer->setEventHandler([&count, timer, shared = std::move(shared)] {
        delete timer;
        ++count;
    });
    timer->schedule(DISPATCH_TIME_NOW, kMillisecond);
    timer->resume();
    EXPECT_TRUE(waitFor([&] { return weak.expired(); }));
    EXPECT_EQ(count, 1);
}

}  // namespace
