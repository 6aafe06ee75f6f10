#include "Tests/Frameworks/Dispatch/DispatchTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>
#include <vector>

namespace {

using pavo::test::now;
using pavo::test::waitFor;

class Semaphore {
public:
    explicit Semaphore(std::intptr_t value) : semaphore_(dispatch_semaphore_create(value)) {}
    ~Semaphore() { dispatch_release(semaphore_); }
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    std::intptr_t wait(dispatch_time_t timeout) { return dispatch_semaphore_wait(semaphore_, timeout); }
    std::intptr_t signal() { return dispatch_semaphore_signal(semaphore_); }

private:
    dispatch_semaphore_t semaphore_;
};

TEST(DispatchSemaphore, GivesAsManyTimesAsItsValue)
{
    Semaphore semaphore(2);
    EXPECT_EQ(semaphore.wait(DISPATCH_TIME_NOW), 0);
    EXPECT_EQ(semaphore.wait(DISPATCH_TIME_FOREVER), 0);
    EXPECT_NE(semaphore.wait(DISPATCH_TIME_NOW), 0);
    semaphore.signal();
    EXPECT_EQ(semaphore.wait(DISPATCH_TIME_NOW), 0);
    semaphore.signal();
    semaphore.signal();
}

TEST(DispatchSemaphore, StopsWaitingWhenTheTimeIsUp)
{
    Semaphore semaphore(0);
    const auto end = dispatch_time(DISPATCH_TIME_NOW, 10'000'000);
    EXPECT_NE(semaphore.wait(end), 0);
    EXPECT_GE(now(), end);
    EXPECT_NE(semaphore.wait(1), 0);  // long over
}

TEST(DispatchSemaphore, SaysWhetherASignalWakesAThread)
{
    Semaphore semaphore(0);
    EXPECT_EQ(semaphore.signal(), 0);
    EXPECT_EQ(semaphore.wait(DISPATCH_TIME_NOW), 0);

    std::atomic<bool> isOver = false;
    std::thread waiting([&] {
        while (!isOver)
            semaphore.wait(DISPATCH_TIME_FOREVER);
    });
    EXPECT_TRUE(waitFor([&] { return semaphore.signal() != 0; }));
    isOver = true;
    semaphore.signal();
    waiting.join();
}

TEST(DispatchSemaphore, WakesEachWaitingThreadOnce)
{
    constexpr int kThreadCount = 8;
    Semaphore semaphore(0);
    std::atomic<int> awakeCount = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreadCount; ++i)
        threads.emplace_back([&] {
            semaphore.wait(DISPATCH_TIME_FOREVER);
            ++awakeCount;
        });
    for (int i = 1; i <= kThreadCount; ++i) {
        semaphore.signal();
        EXPECT_TRUE(waitFor([&] { return awakeCount == i; }));
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_NE(semaphore.wait(DISPATCH_TIME_NOW), 0);
}

TEST(DispatchSemaphore, HasNoNegativeValue)
{
    EXPECT_EQ(dispatch_semaphore_create(-1), nullptr);
}

TEST(DispatchSemaphoreDeathTest, EndsTheProcessWhenReleasedWhileTaken)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Semaphore semaphore(1);
            semaphore.wait(DISPATCH_TIME_NOW);
        },
        "BUG IN CLIENT OF LIBDISPATCH: Semaphore object deallocated while in use");
}

TEST(DispatchOnce, CallsTheFirstTimeOnly)
{
    dispatch_once_t predicate = 0;
    int count = 0;
    const auto increment = [](void* context) { ++*static_cast<int*>(context); };
    dispatch_once_f(&predicate, &count, increment);
    dispatch_once_f(&predicate, &count, increment);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(predicate, ~dispatch_once_t{0});
}

TEST(DispatchOnce, HasTheOthersWaitForTheFirstCall)
{
    constexpr int kThreadCount = 4;
    struct State {
        dispatch_once_t predicate = 0;
        std::latch everybodyIsThere{kThreadCount};
        int value = 0;
    } state;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreadCount; ++i)
        threads.emplace_back([&state] {
            state.everybodyIsThere.arrive_and_wait();
            dispatch_once_f(&state.predicate, &state, [](void* context) {
                pavo::test::waitForTime(dispatch_time(DISPATCH_TIME_NOW, 5'000'000));
                ++static_cast<State*>(context)->value;
            });
            EXPECT_EQ(state.value, 1);
        });
    for (auto& thread : threads)
        thread.join();
}

}  // namespace
