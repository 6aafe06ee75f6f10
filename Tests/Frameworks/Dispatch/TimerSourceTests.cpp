#include "Tests/Frameworks/Dispatch/DispatchTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace {

using pavo::test::now;
using pavo::test::Source;
using pavo::test::waitFor;
using pavo::test::waitForTime;

constexpr std::uint64_t kMillisecond = 1'000'000;

dispatch_queue_t urgentQueue()
{
    return dispatch_get_global_queue(QOS_CLASS_USER_INTERACTIVE, 0);
}

// Keeps the times of a source's fires, and may do something in each. Outlives the source's fires.
class Fires {
public:
    explicit Fires(std::function<void(int fire)> action = {}) : action_(std::move(action)) {}

    void connect(dispatch_source_t source)
    {
        dispatch_set_context(source, this);
        dispatch_source_set_event_handler_f(source,
                                            [](void* context) { static_cast<Fires*>(context)->add(); });
    }
    std::vector<dispatch_time_t> times() const
    {
        const std::lock_guard lock(mutex_);
        return times_;
    }
    std::size_t count() const { return times().size(); }
    bool waitForCount(std::size_t wanted) const
    {
        return waitFor([&] { return count() >= wanted; });
    }

private:
    void add()
    {
        int fire = 0;
        {
            const std::lock_guard lock(mutex_);
            fire = static_cast<int>(times_.size());
            times_.push_back(now());
        }
        if (action_) action_(fire);
    }

    const std::function<void(int)> action_;
    mutable std::mutex mutex_;
    std::vector<dispatch_time_t> times_;
};

// A timer on a serial queue. Its end waits until no fire can come any more.
class Timer {
public:
    explicit Timer(std::function<void(int fire)> action = {}) : fires(std::move(action))
    {
        fires.connect(source.get());
    }
    ~Timer()
    {
        dispatch_source_cancel(source.get());
        if (suspendCount != 0) resume();
        dispatch_sync_f(queue.get(), nullptr, [](void*) {});
    }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    void schedule(dispatch_time_t start, std::uint64_t interval)
    {
        dispatch_source_set_timer(source.get(), start, interval, 0);
    }
    void resume()
    {
        --suspendCount;
        dispatch_resume(source.get());
    }
    void suspend()
    {
        ++suspendCount;
        dispatch_suspend(source.get());
    }

    dispatch::Queue queue = dispatch::Queue::serial("timer", QOS_CLASS_USER_INTERACTIVE);
    Fires fires;
    Source source{queue.get()};
    int suspendCount = 1;
};

TEST(DispatchTimerSource, RefusesWhatItDoesNotKnow)
{
    EXPECT_EQ(dispatch_source_create(nullptr, 0, 0, nullptr), nullptr);
    EXPECT_EQ(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 1, 0, nullptr), nullptr);
    EXPECT_EQ(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 2, nullptr), nullptr);
}

TEST(DispatchTimerSource, IsInactiveAtFirst)
{
    Timer timer;
    Timer reference;
    timer.schedule(DISPATCH_TIME_NOW, kMillisecond);
    reference.schedule(DISPATCH_TIME_NOW, kMillisecond);
    reference.resume();
    EXPECT_TRUE(reference.fires.waitForCount(5));
    EXPECT_EQ(timer.fires.count(), 0U);
    timer.resume();
    EXPECT_TRUE(timer.fires.waitForCount(1));
}

TEST(DispatchTimerSource, StartsWithActivationAsWithResume)
{
    Timer timer;
    timer.schedule(DISPATCH_TIME_NOW, kMillisecond);
    dispatch_activate(timer.source.get());
    timer.suspendCount = 0;
    dispatch_activate(timer.source.get());
    EXPECT_TRUE(timer.fires.waitForCount(2));
}

// No fire comes before its deadline, and the deadlines stay where they were set: counted from the start, the
// fires that were merged can only be missing. A clock that restarted with each fire would fall behind by each
// one's delay.
TEST(DispatchTimerSource, KeepsSixtyTicksASecondWithoutDrift)
{
    constexpr std::uint64_t kInterval = 16'666'666;
    constexpr std::size_t kTickCount = 30;
    Timer timer;
    const auto start = dispatch_time(DISPATCH_TIME_NOW, kInterval);
    timer.schedule(start, kInterval);
    timer.resume();
    ASSERT_TRUE(timer.fires.waitForCount(kTickCount));

    const auto times = timer.fires.times();
    std::uint64_t leastLateness = kInterval;
    for (std::size_t tick = 0; tick < times.size(); ++tick) {
        EXPECT_GE(times[tick], start + tick * kInterval);
        if (tick >= kTickCount / 2)
            leastLateness = std::min(leastLateness, (times[tick] - start) % kInterval);
    }
    EXPECT_LT(leastLateness, kInterval / 4);
}

TEST(DispatchTimerSource, MergesTheFiresThatItsHandlerMissesIntoOne)
{
    constexpr std::uint64_t kInterval = 20 * kMillisecond;
    const auto start = now();
    Timer timer([start](int fire) {
        if (fire == 0) waitForTime(start + 2 * kInterval + kInterval / 2);
    });
    timer.schedule(start, kInterval);
    timer.resume();
    ASSERT_TRUE(timer.fires.waitForCount(3));

    const auto times = timer.fires.times();
    EXPECT_GE(times[1], start + 2 * kInterval + kInterval / 2);
    EXPECT_GE(times[2], start + 3 * kInterval);
}

TEST(DispatchTimerSource, NeverRunsTwoFiresAtATimeOnAConcurrentQueue)
{
    constexpr std::size_t kFireCount = 10;
    std::atomic<int> running = 0;
    std::atomic<int> most = 0;
    Fires fires([&](int) {
        most = std::max(most.load(), ++running);
        waitForTime(dispatch_time(DISPATCH_TIME_NOW, 3 * kMillisecond));
        --running;
    });
    {
        const Source source(urgentQueue());
        fires.connect(source.get());
        dispatch_source_set_timer(source.get(), DISPATCH_TIME_NOW, kMillisecond, 0);
        dispatch_resume(source.get());
        EXPECT_TRUE(fires.waitForCount(kFireCount));
        dispatch_source_cancel(source.get());
        EXPECT_TRUE(waitFor([&] { return running == 0; }));
    }
    EXPECT_EQ(most, 1);
}

TEST(DispatchTimerSource, FiresOnceWithoutAnInterval)
{
    Timer timer;
    Timer reference;
    timer.schedule(DISPATCH_TIME_NOW, DISPATCH_TIME_FOREVER);
    reference.schedule(DISPATCH_TIME_NOW, kMillisecond);
    timer.resume();
    reference.resume();
    EXPECT_TRUE(timer.fires.waitForCount(1));
    EXPECT_TRUE(reference.fires.waitForCount(5));
    EXPECT_EQ(timer.fires.count(), 1U);
}

TEST(DispatchTimerSource, NeverFiresWhenItsStartIsForEver)
{
    Timer timer;
    Timer reference;
    timer.schedule(DISPATCH_TIME_FOREVER, kMillisecond);
    reference.schedule(DISPATCH_TIME_NOW, kMillisecond);
    timer.resume();
    reference.resume();
    EXPECT_TRUE(reference.fires.waitForCount(5));
    EXPECT_EQ(timer.fires.count(), 0U);
}

TEST(DispatchTimerSource, FiresOnceForAnIntervalThatEndsBeyondTheClock)
{
    Timer timer;
    Timer reference;
    timer.schedule(DISPATCH_TIME_NOW, 1ULL << 63);
    reference.schedule(DISPATCH_TIME_NOW, kMillisecond);
    timer.resume();
    reference.resume();
    EXPECT_TRUE(reference.fires.waitForCount(5));
    EXPECT_EQ(timer.fires.count(), 1U);
}

TEST(DispatchTimerSource, TakesANewScheduleWhileItRuns)
{
    Timer timer;
    timer.schedule(dispatch_time(DISPATCH_TIME_NOW, static_cast<std::int64_t>(NSEC_PER_SEC * 3600)),
                   kMillisecond);
    timer.resume();
    timer.schedule(DISPATCH_TIME_NOW, kMillisecond);
    EXPECT_TRUE(timer.fires.waitForCount(3));
}

TEST(DispatchTimerSource, DoesNotFireWhileSuspended)
{
    Timer timer;
    Timer reference;
    timer.schedule(DISPATCH_TIME_NOW, kMillisecond);
    reference.schedule(DISPATCH_TIME_NOW, kMillisecond);
    timer.resume();
    ASSERT_TRUE(timer.fires.waitForCount(3));
    timer.suspend();
    dispatch_sync_f(timer.queue.get(), nullptr, [](void*) {});
    const auto countWhenSuspended = timer.fires.count();
    reference.resume();
    EXPECT_TRUE(reference.fires.waitForCount(10));
    EXPECT_EQ(timer.fires.count(), countWhenSuspended);
    timer.resume();
    EXPECT_TRUE(timer.fires.waitForCount(countWhenSuspended + 3));
}

TEST(DispatchTimerSource, DeliversOneFireForThoseMissedWhileSuspended)
{
    constexpr std::uint64_t kInterval = 20 * kMillisecond;
    Timer timer;
    const auto start = now();
    timer.schedule(start, kInterval);
    ASSERT_TRUE(waitForTime(start + 3 * kInterval));
    timer.resume();
    ASSERT_TRUE(timer.fires.waitForCount(2));

    // The second fire is that of the next deadline, which is where it would have been without the pause.
    EXPECT_GE(timer.fires.times()[1], start + 4 * kInterval);
}

TEST(DispatchTimerSource, CountsSuspensions)
{
    Timer timer;
    Timer reference;
    timer.schedule(DISPATCH_TIME_NOW, kMillisecond);
    reference.schedule(DISPATCH_TIME_NOW, kMillisecond);
    timer.suspend();
    timer.suspend();
    timer.resume();
    timer.resume();
    reference.resume();
    EXPECT_TRUE(reference.fires.waitForCount(5));
    EXPECT_EQ(timer.fires.count(), 0U);
    timer.resume();
    EXPECT_TRUE(timer.fires.waitForCount(1));
}

TEST(DispatchTimerSource, FinishesTheRunningFireAndStartsNoOtherWhenCancelled)
{
    Timer reference;
    bool isFinished = false;
    Timer timer([&](int fire) {
        if (fire != 2) return;
        dispatch_source_cancel(timer.source.get());
        waitForTime(dispatch_time(DISPATCH_TIME_NOW, 5 * kMillisecond));
        isFinished = true;
    });
    EXPECT_EQ(dispatch_source_testcancel(timer.source.get()), 0);
    timer.schedule(DISPATCH_TIME_NOW, kMillisecond);
    timer.resume();
    EXPECT_TRUE(waitFor([&] { return dispatch_source_testcancel(timer.source.get()) != 0; }));
    dispatch_sync_f(timer.queue.get(), nullptr, [](void*) {});
    EXPECT_TRUE(isFinished);

    reference.schedule(DISPATCH_TIME_NOW, kMillisecond);
    reference.resume();
    EXPECT_TRUE(reference.fires.waitForCount(5));
    EXPECT_EQ(timer.fires.count(), 3U);
}

TEST(DispatchTimerSource, StopsFiringWhenNobodyHoldsItAnyMore)
{
    Fires fires;
    std::size_t countAtRelease = 0;
    {
        const auto queue = dispatch::Queue::serial("timer");
        {
            const Source source(queue.get());
            fires.connect(source.get());
            dispatch_source_set_timer(source.get(), DISPATCH_TIME_NOW, kMillisecond, 0);
            dispatch_resume(source.get());
            EXPECT_TRUE(fires.waitForCount(3));
        }
        dispatch::sync(queue.get(), [&] { countAtRelease = fires.count(); });
    }
    Timer reference;
    reference.schedule(DISPATCH_TIME_NOW, kMillisecond);
    reference.resume();
    EXPECT_TRUE(reference.fires.waitForCount(5));
    EXPECT_EQ(fires.count(), countAtRelease);
}

TEST(DispatchTimerSource, SwallowsFiresWithoutAHandler)
{
    Timer timer;
    timer.schedule(DISPATCH_TIME_NOW, kMillisecond);
    timer.resume();
    ASSERT_TRUE(timer.fires.waitForCount(2));
    dispatch_source_set_event_handler_f(timer.source.get(), nullptr);
    dispatch_sync_f(timer.queue.get(), nullptr, [](void*) {});
    const auto count = timer.fires.count();
    Timer reference;
    reference.schedule(DISPATCH_TIME_NOW, kMillisecond);
    reference.resume();
    EXPECT_TRUE(reference.fires.waitForCount(5));
    EXPECT_EQ(timer.fires.count(), count);
}

TEST(DispatchTimerSource, WaitsForItsSuspendedQueue)
{
    Timer timer;
    Timer reference;
    dispatch_suspend(timer.queue.get());
    timer.schedule(DISPATCH_TIME_NOW, kMillisecond);
    reference.schedule(DISPATCH_TIME_NOW, kMillisecond);
    timer.resume();
    reference.resume();
    EXPECT_TRUE(reference.fires.waitForCount(5));
    EXPECT_EQ(timer.fires.count(), 0U);
    dispatch_resume(timer.queue.get());
    EXPECT_TRUE(timer.fires.waitForCount(1));
}

TEST(DispatchTimerSource, RunsManyTimersAtOnce)
{
    constexpr int kTimerCount = 50;
    std::vector<std::unique_ptr<Timer>> timers;
    for (int i = 0; i < kTimerCount; ++i) {
        timers.push_back(std::make_unique<Timer>());
        timers.back()->schedule(DISPATCH_TIME_NOW, kMillisecond * static_cast<unsigned>(1 + i % 7));
        timers.back()->resume();
    }
    for (const auto& timer : timers)
        EXPECT_TRUE(timer->fires.waitForCount(3));
}

TEST(DispatchTimerSourceDeathTest, EndsTheProcessOnReleaseOfAnInactiveSource)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(Source{}, "BUG IN CLIENT OF LIBDISPATCH: Release of an inactive object");
    EXPECT_DEATH(
        {
            const Source source;
            dispatch_source_cancel(source.get());
        },
        "BUG IN CLIENT OF LIBDISPATCH: Release of an inactive object");
}

TEST(DispatchTimerSourceDeathTest, EndsTheProcessOnReleaseOfASuspendedSource)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const Source source;
            dispatch_resume(source.get());
            dispatch_suspend(source.get());
            dispatch_source_cancel(source.get());
        },
        "BUG IN CLIENT OF LIBDISPATCH: Release of a suspended object");
}

TEST(DispatchTimerSourceDeathTest, EndsTheProcessOnAnOverResume)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const Source source;
            dispatch_resume(source.get());
            dispatch_resume(source.get());
        },
        "BUG IN CLIENT OF LIBDISPATCH: Over-resume of an object");
}

TEST(DispatchTimerSource, MayBeReleasedWhenActive)
{
    const Source running;
    dispatch_resume(running.get());
    const Source cancelled;
    dispatch_source_cancel(cancelled.get());
    dispatch_resume(cancelled.get());
}

}  // namespace
