#include "CMIOExtensionSupport/RepeatingTimer.h"
#include "Tests/Support/Wait.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <functional>
#include <latch>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

// The calls that a timer makes are recorded and passed on; a fire of its source passes through the recorder
// too.
extern "C" {
dispatch_source_t __real_dispatch_source_create(dispatch_source_type_t, uintptr_t, uintptr_t,
                                                dispatch_queue_t);
void __real_dispatch_source_set_timer(dispatch_source_t, dispatch_time_t, uint64_t, uint64_t);
void __real_dispatch_source_set_event_handler_f(dispatch_source_t, dispatch_function_t);
void __real_dispatch_source_cancel(dispatch_source_t);
void __real_dispatch_set_finalizer_f(dispatch_object_t, dispatch_function_t);
void __real_dispatch_resume(dispatch_object_t);
void __real_dispatch_suspend(dispatch_object_t);
void __real_dispatch_release(dispatch_object_t);
}

namespace {

using pavo::RepeatingTimer;
using pavo::test::waitFor;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kMillisecond = 0.001;

class Recorder {
public:
    struct Creation {
        dispatch_source_type_t type = nullptr;
        uintptr_t handle = 1;
        uintptr_t mask = 0;
        dispatch_queue_t queue = nullptr;
    };
    struct Schedule {
        dispatch_time_t start = 0;
        uint64_t interval = 0;
        uint64_t leeway = 1;
    };

    void reset()
    {
        const std::lock_guard lock(mutex_);
        calls_.clear();
        schedules_.clear();
        fires_.clear();
        source_ = nullptr;
        beforeFire_ = nullptr;
    }
    void setSource(dispatch_source_t source, const Creation& creation)
    {
        const std::lock_guard lock(mutex_);
        source_ = source;
        ++liveSourceCount_;
        creation_ = creation;
        calls_.emplace_back("create");
    }
    void add(const char* call, dispatch_object_t object)
    {
        const std::lock_guard lock(mutex_);
        if (object == source_) calls_.emplace_back(call);
    }
    void addSchedule(const Schedule& schedule)
    {
        const std::lock_guard lock(mutex_);
        schedules_.push_back(schedule);
    }
    void setFunction(dispatch_function_t function)
    {
        const std::lock_guard lock(mutex_);
        function_ = function;
    }
    void setFinalizer(dispatch_function_t finalizer)
    {
        const std::lock_guard lock(mutex_);
        finalizer_ = finalizer;
    }
    void finalize(void* context)
    {
        const std::lock_guard lock(mutex_);
        finalizer_(context);
        --liveSourceCount_;
    }
    void fire(void* context)
    {
        std::unique_lock lock(mutex_);
        fires_.push_back(dispatch_time(DISPATCH_TIME_NOW, 0));
        const auto beforeFire = beforeFire_;
        lock.unlock();
        if (beforeFire) beforeFire();
        lock.lock();
        const auto function = function_;
        lock.unlock();
        function(context);
    }
    void setBeforeFire(std::function<void()> action)
    {
        const std::lock_guard lock(mutex_);
        beforeFire_ = std::move(action);
    }

    std::vector<std::string> calls() const { return read(calls_); }
    std::vector<std::string> takeCalls()
    {
        const std::lock_guard lock(mutex_);
        return std::exchange(calls_, {});
    }
    Creation creation() const { return read(creation_); }
    std::vector<Schedule> schedules() const { return read(schedules_); }
    std::vector<dispatch_time_t> fires() const { return read(fires_); }
    int liveSourceCount() const { return read(liveSourceCount_); }

private:
    template <typename Value>
    Value read(const Value& value) const
    {
        const std::lock_guard lock(mutex_);
        return value;
    }

    mutable std::mutex mutex_;
    std::vector<std::string> calls_;
    Creation creation_;
    std::vector<Schedule> schedules_;
    std::vector<dispatch_time_t> fires_;
    dispatch_source_t source_ = nullptr;
    dispatch_function_t function_ = nullptr;
    dispatch_function_t finalizer_ = nullptr;
    int liveSourceCount_ = 0;
    std::function<void()> beforeFire_;
};

Recorder& recorder()
{
    static auto* const shared = new Recorder;
    return *shared;
}

// What handlers count in. They share it, because a fire under way may outlive the test's frame.
using Counter = std::shared_ptr<std::atomic<int>>;
Counter makeCounter()
{
    return std::make_shared<std::atomic<int>>(0);
}

std::function<void()> counting(const Counter& counter)
{
    return [counter] { ++*counter; };
}

bool waitForTime(dispatch_time_t time)
{
    return waitFor([time] { return dispatch_time(DISPATCH_TIME_NOW, 0) >= time; });
}

class RepeatingTimerTest : public testing::Test {
protected:
    RepeatingTimerTest() { recorder().reset(); }
    // Every source goes, and with it the last fire.
    ~RepeatingTimerTest() override
    {
        timer.reset();
        EXPECT_TRUE(waitFor([] { return recorder().liveSourceCount() == 0; }));
    }

    static bool waitForFires(std::size_t count)
    {
        return waitFor([count] { return recorder().fires().size() >= count; });
    }

    std::shared_ptr<RepeatingTimer> timer;
};
using RepeatingTimerDeathTest = RepeatingTimerTest;

}  // namespace

extern "C" {

dispatch_source_t __wrap_dispatch_source_create(dispatch_source_type_t type, uintptr_t handle, uintptr_t mask,
                                                dispatch_queue_t queue)
{
    const auto source = __real_dispatch_source_create(type, handle, mask, queue);
    recorder().setSource(source, {type, handle, mask, queue});
    return source;
}

void __wrap_dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start, uint64_t interval,
                                      uint64_t leeway)
{
    recorder().add("set timer", source);
    recorder().addSchedule({start, interval, leeway});
    __real_dispatch_source_set_timer(source, start, interval, leeway);
}

void __wrap_dispatch_source_set_event_handler_f(dispatch_source_t source, dispatch_function_t handler)
{
    recorder().add("set event handler", source);
    recorder().setFunction(handler);
    __real_dispatch_source_set_event_handler_f(source, [](void* context) { recorder().fire(context); });
}

void __wrap_dispatch_set_finalizer_f(dispatch_object_t object, dispatch_function_t finalizer)
{
    recorder().setFinalizer(finalizer);
    __real_dispatch_set_finalizer_f(object, [](void* context) { recorder().finalize(context); });
}

void __wrap_dispatch_source_cancel(dispatch_source_t source)
{
    recorder().add("cancel", source);
    __real_dispatch_source_cancel(source);
}

void __wrap_dispatch_resume(dispatch_object_t object)
{
    recorder().add("resume", object);
    __real_dispatch_resume(object);
}

void __wrap_dispatch_suspend(dispatch_object_t object)
{
    recorder().add("suspend", object);
    __real_dispatch_suspend(object);
}

void __wrap_dispatch_release(dispatch_object_t object)
{
    // Recorded when it is done: the process has survived it.
    __real_dispatch_release(object);
    recorder().add("release", object);
}

}  // extern "C"

namespace {

TEST_F(RepeatingTimerTest, IsPausedWithoutAHandlerAtFirst)
{
    timer = RepeatingTimer::create(1.0 / 60.0);
    EXPECT_EQ(timer->timeInterval(), 1.0 / 60.0);
    EXPECT_FALSE(timer->isRunning());
    EXPECT_FALSE(timer->eventHandler());
}

TEST_F(RepeatingTimerTest, CreatesAStrictSourceOnTheUserInteractiveQueueSchedulesItAndLeavesItSuspended)
{
    timer = RepeatingTimer::create(1.0 / 60.0);
    EXPECT_THAT(recorder().calls(), ElementsAre("create", "set timer", "set event handler"));
    const auto creation = recorder().creation();
    EXPECT_EQ(creation.type, DISPATCH_SOURCE_TYPE_TIMER);
    EXPECT_EQ(creation.handle, 0U);
    EXPECT_EQ(creation.mask, 1U);
    EXPECT_EQ(creation.queue, dispatch_get_global_queue(0x21, 0));
}

TEST_F(RepeatingTimerTest, StartsOneIntervalAfterItsConstructionWithThatPeriodAndNoLeeway)
{
    const auto before = dispatch_time(DISPATCH_TIME_NOW, 0);
    timer = RepeatingTimer::create(1.0 / 60.0);
    const auto after = dispatch_time(DISPATCH_TIME_NOW, 0);

    ASSERT_EQ(recorder().schedules().size(), 1U);
    const auto schedule = recorder().schedules().front();
    EXPECT_GE(schedule.start, before + 16'666'666);
    EXPECT_LE(schedule.start, after + 16'666'666);
    EXPECT_EQ(schedule.interval, 16'666'666U);
    EXPECT_EQ(schedule.leeway, 0U);
}

TEST_F(RepeatingTimerTest, CutsOffPartsOfANanosecond)
{
    timer = RepeatingTimer::create(1.9e-6 + 0.9e-9);
    EXPECT_EQ(recorder().schedules().front().interval, 1'900U);
}

TEST_F(RepeatingTimerTest, NeverFiresForAnIntervalThatIsLongerThanTheClock)
{
    timer = RepeatingTimer::create(std::numeric_limits<double>::infinity());
    EXPECT_EQ(recorder().schedules().front().start, DISPATCH_TIME_FOREVER);
    EXPECT_EQ(recorder().schedules().front().interval, DISPATCH_TIME_FOREVER);

    recorder().takeCalls();
    timer = RepeatingTimer::create(1e10);
    EXPECT_EQ(recorder().schedules().back().start, DISPATCH_TIME_FOREVER);
    EXPECT_EQ(recorder().schedules().back().interval, 10'000'000'000'000'000'000U);
}

TEST_F(RepeatingTimerDeathTest, EndsTheProcessForAnIntervalThatIsNoTime)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(RepeatingTimer::create(-1.0), "The time interval is not a number of nanoseconds");
    EXPECT_DEATH(RepeatingTimer::create(std::nan("")), "The time interval is not a number of nanoseconds");
    EXPECT_DEATH(RepeatingTimer::create(1e11), "The time interval is not a number of nanoseconds");
}

TEST_F(RepeatingTimerTest, ANewTimerNeverFiresUntilIsRunningIsSetToTrue)
{
    const auto count = makeCounter();
    timer = RepeatingTimer::create(kMillisecond);
    timer->setEventHandler(counting(count));
    ASSERT_TRUE(waitForTime(recorder().schedules().front().start + 10'000'000));
    EXPECT_THAT(recorder().fires(), IsEmpty());

    timer->setIsRunning(true);
    EXPECT_TRUE(waitFor([&] { return *count >= 1; }));
}

TEST_F(RepeatingTimerTest, SettingIsRunningToTrueTwiceResumesOnceThenFalseOncePausesIt)
{
    timer = RepeatingTimer::create(kMillisecond);
    recorder().takeCalls();
    timer->setIsRunning(true);
    EXPECT_TRUE(timer->isRunning());
    timer->setIsRunning(true);
    EXPECT_THAT(recorder().calls(), ElementsAre("resume"));
    EXPECT_TRUE(waitForFires(2));

    timer->setIsRunning(false);
    EXPECT_FALSE(timer->isRunning());
    timer->setIsRunning(false);
    EXPECT_THAT(recorder().calls(), ElementsAre("resume", "suspend"));
    // At most the fire that was under way comes after that.
    const auto countWhenPaused = recorder().fires().size();
    ASSERT_TRUE(waitForTime(dispatch_time(DISPATCH_TIME_NOW, 10'000'000)));
    EXPECT_LE(recorder().fires().size(), countWhenPaused + 1);
}

TEST_F(RepeatingTimerTest, SettingIsRunningToFalseAtFirstChangesNothing)
{
    timer = RepeatingTimer::create(kMillisecond);
    recorder().takeCalls();
    timer->setIsRunning(false);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(RepeatingTimerTest, GoesOnAfterAPause)
{
    const auto count = makeCounter();
    timer = RepeatingTimer::create(kMillisecond);
    timer->setEventHandler(counting(count));
    for (int round = 0; round < 5; ++round) {
        const int before = *count;
        timer->setIsRunning(true);
        EXPECT_TRUE(waitFor([&] { return *count >= before + 3; }));
        timer->setIsRunning(false);
    }
}

// The handler clears itself, and the next one is set by a fire: there the timer's handler may be changed.
TEST_F(RepeatingTimerTest, ClearingEventHandlerWhileRunningMakesFiresDoNothingWithoutStoppingTheSource)
{
    const auto count = makeCounter();
    timer = RepeatingTimer::create(kMillisecond);
    const std::weak_ptr<RepeatingTimer> weak = timer;
    timer->setEventHandler([count, weak] {
        if (++*count == 2) weak.lock()->setEventHandler({});
    });
    recorder().takeCalls();
    timer->setIsRunning(true);
    EXPECT_TRUE(waitForFires(10));
    EXPECT_EQ(*count, 2);
    EXPECT_TRUE(timer->isRunning());
    EXPECT_THAT(recorder().calls(), ElementsAre("resume"));

    recorder().setBeforeFire([count, weak] {
        recorder().setBeforeFire({});
        if (const auto self = weak.lock()) self->setEventHandler(counting(count));
    });
    EXPECT_TRUE(waitFor([&] { return *count >= 5; }));
}

TEST_F(RepeatingTimerTest, ReplacesItsHandlerFromInsideIt)
{
    const auto first = makeCounter();
    const auto second = makeCounter();
    timer = RepeatingTimer::create(kMillisecond);
    const std::weak_ptr<RepeatingTimer> weak = timer;
    timer->setEventHandler([first, second, weak] {
        weak.lock()->setEventHandler(counting(second));
        ++*first;  // the closure is still there
    });
    timer->setIsRunning(true);
    EXPECT_TRUE(waitFor([&] { return *second >= 2; }));
    EXPECT_EQ(*first, 1);
}

TEST_F(RepeatingTimerTest, GivesBackItsHandler)
{
    const auto count = makeCounter();
    timer = RepeatingTimer::create(1);
    timer->setEventHandler(counting(count));
    const auto handler = timer->eventHandler();
    ASSERT_TRUE(handler);
    handler();
    EXPECT_EQ(*count, 1);
    timer->setEventHandler({});
    EXPECT_FALSE(timer->eventHandler());
}

TEST_F(RepeatingTimerTest, FiresOnTheUserInteractiveQueue)
{
    const auto count = makeCounter();
    timer = RepeatingTimer::create(kMillisecond);
    timer->setEventHandler([count] {
        dispatch_assert_queue(dispatch_get_global_queue(QOS_CLASS_USER_INTERACTIVE, 0));
        ++*count;
    });
    timer->setIsRunning(true);
    EXPECT_TRUE(waitFor([&] { return *count >= 1; }));
}

TEST_F(RepeatingTimerTest, TheScheduleIsFixedAtConstruction)
{
    constexpr std::uint64_t kInterval = 20'000'000;
    timer = RepeatingTimer::create(0.02);
    const auto start = recorder().schedules().front().start;
    timer->setIsRunning(true);
    EXPECT_TRUE(waitForFires(1));
    timer->setIsRunning(false);
    ASSERT_TRUE(waitForTime(start + 2 * kInterval + kInterval / 2));
    const auto fireCount = recorder().fires().size();
    timer->setIsRunning(true);
    EXPECT_TRUE(waitForFires(fireCount + 2));

    const auto fires = recorder().fires();
    EXPECT_GE(fires.front(), start);
    // What the pause missed is one fire; the one after it comes at a deadline of the first schedule.
    EXPECT_GE(fires[fireCount + 1], start + 3 * kInterval);
    EXPECT_EQ(recorder().schedules().size(), 1U);
}

TEST_F(RepeatingTimerTest, DestructionWhileNeverRunResumesTheCancelledSourceOnceBeforeItIsReleased)
{
    timer = RepeatingTimer::create(kMillisecond);
    recorder().takeCalls();
    timer.reset();
    EXPECT_THAT(recorder().calls(), ElementsAre("set event handler", "cancel", "resume", "release"));
}

TEST_F(RepeatingTimerTest, DestructionWhilePausedResumesTheCancelledSourceOnceBeforeItIsReleased)
{
    timer = RepeatingTimer::create(1);
    timer->setIsRunning(true);
    timer->setIsRunning(false);
    recorder().takeCalls();
    timer.reset();
    EXPECT_THAT(recorder().calls(), ElementsAre("set event handler", "cancel", "resume", "release"));
}

TEST_F(RepeatingTimerTest, DestructionWhileRunningDoesNotResumeTheSource)
{
    timer = RepeatingTimer::create(1);
    timer->setIsRunning(true);
    recorder().takeCalls();
    timer.reset();
    EXPECT_THAT(recorder().calls(), ElementsAre("set event handler", "cancel", "release"));
}

TEST_F(RepeatingTimerTest, DestructionDropsTheEventHandler)
{
    const auto count = makeCounter();
    const std::weak_ptr<std::atomic<int>> weak = count;
    timer = RepeatingTimer::create(1);
    timer->setEventHandler(counting(count));
    EXPECT_EQ(weak.use_count(), 2);
    timer.reset();
    EXPECT_EQ(weak.use_count(), 1);
}

TEST_F(RepeatingTimerTest, StopsFiringWhenItIsDestroyedWhileRunning)
{
    const auto count = makeCounter();
    timer = RepeatingTimer::create(kMillisecond);
    timer->setEventHandler(counting(count));
    timer->setIsRunning(true);
    EXPECT_TRUE(waitFor([&] { return *count >= 2; }));
    const std::weak_ptr<RepeatingTimer> weak = timer;
    timer.reset();
    EXPECT_TRUE(waitFor([&] { return weak.expired() && count.use_count() == 1; }));
    const int before = *count;
    ASSERT_TRUE(waitForTime(dispatch_time(DISPATCH_TIME_NOW, 10'000'000)));
    EXPECT_EQ(*count, before);
}

TEST_F(RepeatingTimerTest, MayBeDestroyedFromInsideItsHandler)
{
    const auto count = makeCounter();
    struct Owner {
        std::shared_ptr<RepeatingTimer> timer;
    };
    const auto owner = std::make_shared<Owner>();
    owner->timer = RepeatingTimer::create(kMillisecond);
    const std::weak_ptr<RepeatingTimer> weak = owner->timer;
    owner->timer->setEventHandler([count, owner] {
        owner->timer.reset();
        ++*count;
    });
    recorder().takeCalls();
    owner->timer->setIsRunning(true);
    EXPECT_TRUE(waitFor([] { return recorder().calls().size() == 4; }));
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(*count, 1);
    EXPECT_THAT(recorder().calls(), ElementsAre("resume", "set event handler", "cancel", "release"));
}

TEST_F(RepeatingTimerTest, AFireUnderWayKeepsTheTimerUntilItIsDone)
{
    const auto isFiring = std::make_shared<std::latch>(1);
    const auto release = std::make_shared<std::latch>(1);
    const auto count = makeCounter();
    timer = RepeatingTimer::create(kMillisecond);
    timer->setEventHandler([isFiring, release, count] {
        isFiring->count_down();
        release->wait();
        ++*count;
    });
    timer->setIsRunning(true);
    isFiring->wait();
    recorder().takeCalls();
    const std::weak_ptr<RepeatingTimer> weak = timer;
    timer.reset();
    EXPECT_FALSE(weak.expired());
    EXPECT_THAT(recorder().calls(), IsEmpty());

    release->count_down();
    EXPECT_TRUE(waitFor([] { return recorder().calls().size() == 3; }));
    EXPECT_THAT(recorder().calls(), ElementsAre("set event handler", "cancel", "release"));
    EXPECT_EQ(*count, 1);
}

TEST_F(RepeatingTimerTest, AFireThatBeginsAfterTheLastReleaseDoesNothing)
{
    const auto isFiring = std::make_shared<std::latch>(1);
    const auto release = std::make_shared<std::latch>(1);
    const auto count = makeCounter();
    recorder().setBeforeFire([isFiring, release] {
        recorder().setBeforeFire({});
        isFiring->count_down();
        release->wait();
    });
    timer = RepeatingTimer::create(kMillisecond);
    timer->setEventHandler(counting(count));
    timer->setIsRunning(true);
    isFiring->wait();
    timer.reset();
    EXPECT_EQ(recorder().liveSourceCount(), 1);
    release->count_down();
    EXPECT_TRUE(waitFor([] { return recorder().liveSourceCount() == 0; }));
    EXPECT_EQ(*count, 0);
}

}  // namespace
