#include "Tests/Frameworks/Dispatch/DispatchTestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <latch>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

extern "C" int countFromC(void);

namespace {

using pavo::test::waitFor;
using testing::ElementsAre;

dispatch_queue_t global(qos_class_t qualityOfService)
{
    return dispatch_get_global_queue(qualityOfService, 0);
}

TEST(DispatchQueue, ServesPlainC)
{
    EXPECT_EQ(countFromC(), 3);
}

TEST(DispatchQueue, RunsItemsOfASerialQueueInOrderOfArrival)
{
    constexpr int kItemCount = 1000;
    const auto queue = dispatch::Queue::serial("serial");
    std::vector<int> order;
    for (int i = 0; i < kItemCount; ++i)
        dispatch::async(queue.get(), [&order, i] { order.push_back(i); });
    dispatch::sync(queue.get(), [] {});

    ASSERT_EQ(order.size(), static_cast<std::size_t>(kItemCount));
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(DispatchQueue, RunsOneItemOfASerialQueueAtATime)
{
    constexpr int kThreadCount = 4;
    constexpr int kItemsPerThread = 500;
    const auto queue = dispatch::Queue::serial("serial");
    int unguarded = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreadCount; ++i)
        threads.emplace_back([&] {
            for (int item = 0; item < kItemsPerThread; ++item) {
                dispatch::async(queue.get(), [&unguarded] { ++unguarded; });
                dispatch::sync(queue.get(), [&unguarded] { ++unguarded; });
            }
        });
    for (auto& thread : threads)
        thread.join();
    dispatch::sync(queue.get(), [] {});

    EXPECT_EQ(unguarded, 2 * kThreadCount * kItemsPerThread);
}

TEST(DispatchQueue, RunsItemsOfAGlobalQueueSideBySide)
{
    std::latch bothRun(2);
    std::atomic<int> doneCount = 0;
    for (int i = 0; i < 2; ++i)
        dispatch::async(global(QOS_CLASS_DEFAULT), [&] {
            bothRun.arrive_and_wait();
            ++doneCount;
        });
    EXPECT_TRUE(waitFor([&] { return doneCount == 2; }));
}

TEST(DispatchQueue, StartsMoreThreadsWhenTheOthersBlock)
{
    constexpr int kItemCount = 20;
    std::latch release(1);
    std::atomic<int> blockedCount = 0;
    std::atomic<int> doneCount = 0;
    for (int i = 0; i < kItemCount; ++i)
        dispatch::async(global(QOS_CLASS_UTILITY), [&] {
            ++blockedCount;
            release.wait();
            ++doneCount;
        });
    EXPECT_TRUE(waitFor([&] { return blockedCount == kItemCount; }));
    release.count_down();
    EXPECT_TRUE(waitFor([&] { return doneCount == kItemCount; }));
}

// Blocks all the threads that there may be, queues one item of each class, least urgent first, and lets one
// thread go on.
TEST(DispatchQueue, RunsTheMostUrgentItemFirstWhenNoThreadIsFree)
{
    constexpr int kThreadLimit = 64;
    std::counting_semaphore<kThreadLimit> release(0);
    std::atomic<int> blockedCount = 0;
    std::atomic<int> doneCount = 0;
    const auto block = [&] {
        ++blockedCount;
        release.acquire();
        ++doneCount;
    };
    for (int i = 0; i < kThreadLimit; ++i)
        dispatch::async(global(QOS_CLASS_DEFAULT), block);
    ASSERT_TRUE(waitFor([&] { return blockedCount == kThreadLimit; }));

    std::vector<unsigned> order;
    const auto record = [&order, &doneCount](qos_class_t qualityOfService) {
        return [&order, &doneCount, qualityOfService] {
            order.push_back(qualityOfService);
            ++doneCount;
        };
    };
    dispatch::async(global(QOS_CLASS_BACKGROUND), record(QOS_CLASS_BACKGROUND));
    dispatch::async(global(QOS_CLASS_UTILITY), record(QOS_CLASS_UTILITY));
    const auto serial = dispatch::Queue::serial("serial");
    dispatch::async(serial.get(), record(QOS_CLASS_DEFAULT));
    dispatch::async(global(QOS_CLASS_USER_INITIATED), record(QOS_CLASS_USER_INITIATED));
    const auto urgent = dispatch::Queue::serial("urgent", QOS_CLASS_USER_INTERACTIVE);
    dispatch::async(urgent.get(), record(QOS_CLASS_USER_INTERACTIVE));

    release.release(1);
    EXPECT_TRUE(waitFor([&] { return doneCount == 6; }));
    EXPECT_THAT(order, ElementsAre(QOS_CLASS_USER_INTERACTIVE, QOS_CLASS_USER_INITIATED, QOS_CLASS_DEFAULT,
                                   QOS_CLASS_UTILITY, QOS_CLASS_BACKGROUND));
    release.release(kThreadLimit - 1);
    EXPECT_TRUE(waitFor([&] { return doneCount == kThreadLimit + 5; }));
}

TEST(DispatchQueue, RunsSyncOnTheCallersThreadWhileTheQueueIsIdle)
{
    const auto queue = dispatch::Queue::serial("serial");
    std::thread::id serialThread;
    std::thread::id globalThread;
    dispatch::sync(queue.get(), [&] { serialThread = std::this_thread::get_id(); });
    dispatch::sync(global(QOS_CLASS_DEFAULT), [&] { globalThread = std::this_thread::get_id(); });

    EXPECT_EQ(serialThread, std::this_thread::get_id());
    EXPECT_EQ(globalThread, std::this_thread::get_id());
}

TEST(DispatchQueue, RunsSyncAfterTheItemsThatWait)
{
    const auto queue = dispatch::Queue::serial("serial");
    std::latch release(1);
    std::string order;
    dispatch::async(queue.get(), [&] {
        release.wait();
        order += 'a';
    });
    dispatch::async(queue.get(), [&] { order += 'b'; });
    dispatch::async(global(QOS_CLASS_DEFAULT), [&] { release.count_down(); });
    dispatch::sync(queue.get(), [&] { order += 'c'; });

    EXPECT_EQ(order, "abc");
}

TEST(DispatchQueue, RunsWhatArrivesDuringASyncAfterIt)
{
    const auto queue = dispatch::Queue::serial("serial");
    std::string order;
    dispatch::sync(queue.get(), [&] {
        dispatch::async(queue.get(), [&] { order += 'b'; });
        order += 'a';
    });
    dispatch::sync(queue.get(), [&] { order += 'c'; });

    EXPECT_EQ(order, "abc");
}

TEST(DispatchQueueDeathTest, EndsTheProcessOnSyncFromAnItemOfTheSameQueue)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto queue = dispatch::Queue::serial("serial");
    EXPECT_DEATH(
        dispatch::sync(queue.get(), [&] { dispatch::sync(queue.get(), [] {}); }),
        "BUG IN CLIENT OF LIBDISPATCH: dispatch_sync called on queue already owned by current thread");
}

// The inner call runs on a worker, which stands for a thread that holds the outer queue.
TEST(DispatchQueueDeathTest, EndsTheProcessOnSyncBackToAQueueThatWaits)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto outer = dispatch::Queue::serial("outer");
    const auto inner = dispatch::Queue::serial("inner");
    EXPECT_DEATH(
        {
            std::latch outerIsHeld(1);
            dispatch::async(inner.get(), [&] { outerIsHeld.wait(); });
            dispatch::sync(outer.get(), [&] {
                dispatch::async(global(QOS_CLASS_DEFAULT), [&] { outerIsHeld.count_down(); });
                dispatch::sync(inner.get(), [&] { dispatch::sync(outer.get(), [] {}); });
            });
        },
        "dispatch_sync called on queue already owned by current thread");
}

TEST(DispatchQueue, StartsNothingWhileSuspended)
{
    const auto queue = dispatch::Queue::serial("serial");
    std::atomic<int> count = 0;
    dispatch_suspend(queue.get());
    dispatch_suspend(queue.get());
    dispatch::async(queue.get(), [&] { ++count; });
    dispatch_resume(queue.get());
    // Another queue's items pass it by.
    const auto other = dispatch::Queue::serial("other");
    dispatch::async(other.get(), [] {});
    dispatch::sync(other.get(), [] {});
    EXPECT_EQ(count, 0);

    dispatch_resume(queue.get());
    EXPECT_TRUE(waitFor([&] { return count == 1; }));
}

TEST(DispatchQueue, FinishesTheRunningItemWhenSuspended)
{
    const auto queue = dispatch::Queue::serial("serial");
    std::string order;
    dispatch::async(queue.get(), [&] {
        dispatch_suspend(queue.get());
        order += 'a';
        dispatch::async(global(QOS_CLASS_DEFAULT), [&] {
            order += 'b';
            dispatch_resume(queue.get());
        });
    });
    dispatch::async(queue.get(), [&] { order += 'c'; });
    dispatch::sync(queue.get(), [&] { order += 'd'; });

    EXPECT_EQ(order, "abcd");
}

TEST(DispatchQueue, SyncWaitsWhileSuspended)
{
    const auto queue = dispatch::Queue::serial("serial");
    std::atomic<bool> isResumed = false;
    dispatch_suspend(queue.get());
    dispatch::async(global(QOS_CLASS_DEFAULT), [&] {
        isResumed = true;
        dispatch_resume(queue.get());
    });
    dispatch::sync(queue.get(), [&] { EXPECT_TRUE(isResumed); });
}

TEST(DispatchQueueDeathTest, EndsTheProcessOnAnOverResume)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto queue = dispatch::Queue::serial("serial");
    EXPECT_DEATH(dispatch_resume(queue.get()), "BUG IN CLIENT OF LIBDISPATCH: Over-resume of an object");
}

TEST(DispatchQueueDeathTest, EndsTheProcessOnReleaseWhileSuspended)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const auto queue = dispatch_queue_create("serial", DISPATCH_QUEUE_SERIAL);
            dispatch_suspend(queue);
            dispatch_release(queue);
        },
        "BUG IN CLIENT OF LIBDISPATCH: Release of a suspended object");
}

TEST(DispatchQueue, GlobalQueuesCannotBeSuspendedOrReleased)
{
    const auto queue = global(QOS_CLASS_DEFAULT);
    dispatch_suspend(queue);
    dispatch_release(queue);
    dispatch_release(queue);
    std::atomic<bool> isRun = false;
    dispatch::async(queue, [&] { isRun = true; });
    EXPECT_TRUE(waitFor([&] { return isRun.load(); }));
    dispatch_resume(queue);
    dispatch_resume(queue);
    EXPECT_EQ(global(QOS_CLASS_DEFAULT), queue);
}

TEST(DispatchQueue, HasOneGlobalQueueForEachClass)
{
    const std::array classes = {QOS_CLASS_USER_INTERACTIVE, QOS_CLASS_USER_INITIATED, QOS_CLASS_DEFAULT,
                                QOS_CLASS_UTILITY, QOS_CLASS_BACKGROUND};
    for (const auto each : classes)
        for (const auto other : classes)
            EXPECT_EQ(global(each) == global(other), each == other);
    EXPECT_EQ(global(QOS_CLASS_UNSPECIFIED), global(QOS_CLASS_DEFAULT));
    EXPECT_EQ(dispatch_get_global_queue(0x20, 0), nullptr);
    EXPECT_EQ(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 1), nullptr);
    EXPECT_STREQ(dispatch_queue_get_label(global(QOS_CLASS_USER_INTERACTIVE)),
                 "com.apple.root.user-interactive-qos");
}

TEST(DispatchQueue, RefusesAttributesThatDoNotExist)
{
    EXPECT_EQ(dispatch_queue_attr_make_with_qos_class(nullptr, static_cast<qos_class_t>(0x20), 0), nullptr);
    EXPECT_EQ(dispatch_queue_attr_make_with_qos_class(nullptr, QOS_CLASS_UTILITY, 1), nullptr);
    EXPECT_EQ(dispatch_queue_attr_make_with_qos_class(nullptr, QOS_CLASS_UTILITY, -16), nullptr);
    EXPECT_NE(dispatch_queue_attr_make_with_qos_class(nullptr, QOS_CLASS_UTILITY, -15), nullptr);
}

TEST(DispatchQueue, CopiesItsLabel)
{
    std::string label = "com.example.label";
    const auto queue = dispatch::Queue::serial(label.c_str());
    label = "something else entirely";
    EXPECT_STREQ(dispatch_queue_get_label(queue.get()), "com.example.label");

    const auto unlabelled = dispatch::Queue::serial(nullptr);
    EXPECT_STREQ(dispatch_queue_get_label(unlabelled.get()), "");
}

TEST(DispatchQueue, TellsTheLabelOfTheQueueThatRuns)
{
    EXPECT_STREQ(dispatch_queue_get_label(DISPATCH_CURRENT_QUEUE_LABEL), "");
    const auto queue = dispatch::Queue::serial("serial");
    dispatch::sync(queue.get(),
                   [] { EXPECT_STREQ(dispatch_queue_get_label(DISPATCH_CURRENT_QUEUE_LABEL), "serial"); });
    EXPECT_STREQ(dispatch_queue_get_label(DISPATCH_CURRENT_QUEUE_LABEL), "");
}

TEST(DispatchQueue, KnowsWhichQueuesAnItemRunsOn)
{
    const auto queue = dispatch::Queue::serial("serial", QOS_CLASS_UTILITY);
    const auto other = dispatch::Queue::serial("other");
    std::atomic<bool> isRun = false;
    dispatch::async(queue.get(), [&] {
        dispatch_assert_queue(queue.get());
        dispatch_assert_queue(global(QOS_CLASS_UTILITY));
        dispatch_assert_queue_not(other.get());
        dispatch::sync(other.get(), [&] {
            dispatch_assert_queue(other.get());
            dispatch_assert_queue(queue.get());
        });
        dispatch_assert_queue_not(other.get());
        isRun = true;
    });
    EXPECT_TRUE(waitFor([&] { return isRun.load(); }));
    dispatch_assert_queue_not(queue.get());
}

TEST(DispatchQueueDeathTest, EndsTheProcessWhenAnItemRunsOnAnotherQueue)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto queue = dispatch::Queue::serial("com.example.queue");
    EXPECT_DEATH(dispatch_assert_queue(queue.get()),
                 "BUG IN CLIENT OF LIBDISPATCH: Assertion failed: Block was expected to execute on queue "
                 "\\[com.example.queue");
    EXPECT_DEATH(dispatch::sync(queue.get(), [&] { dispatch_assert_queue_not(queue.get()); }),
                 "BUG IN CLIENT OF LIBDISPATCH: Assertion failed: Block was not expected to execute on queue "
                 "\\[com.example.queue");
}

TEST(DispatchQueue, RunsDelayedWorkOnItsQueueNotBeforeItsTime)
{
    constexpr std::int64_t kDelay = 20'000'000;
    const auto queue = dispatch::Queue::serial("serial");
    const auto due = dispatch_time(DISPATCH_TIME_NOW, kDelay);
    std::atomic<dispatch_time_t> ranAt = 0;
    dispatch::after(due, queue.get(), [&] {
        dispatch_assert_queue(queue.get());
        ranAt = pavo::test::now();
    });
    EXPECT_TRUE(waitFor([&] { return ranAt != 0; }));
    EXPECT_GE(ranAt, due);
}

TEST(DispatchQueue, RunsDelayedWorkInOrderOfItsTimes)
{
    const auto queue = dispatch::Queue::serial("serial");
    const auto start = pavo::test::now();
    std::string order;
    std::atomic<int> count = 0;
    const auto append = [&](char letter) {
        return [&order, &count, letter] {
            order += letter;
            ++count;
        };
    };
    dispatch::after(dispatch_time(start, 60'000'000), queue.get(), append('c'));
    dispatch::after(dispatch_time(start, 30'000'000), queue.get(), append('b'));
    dispatch::after(DISPATCH_TIME_NOW, queue.get(), append('a'));
    EXPECT_TRUE(waitFor([&] { return count == 3; }));
    EXPECT_EQ(order, "abc");
}

TEST(DispatchQueue, NeverRunsWorkThatIsDelayedForEver)
{
    const auto queue = dispatch::Queue::serial("serial");
    static std::atomic<bool> isRun = false;
    dispatch_after_f(DISPATCH_TIME_FOREVER, queue.get(), nullptr, [](void*) { isRun = true; });
    std::atomic<bool> isOtherRun = false;
    dispatch::after(dispatch_time(DISPATCH_TIME_NOW, 1'000'000), queue.get(), [&] { isOtherRun = true; });
    EXPECT_TRUE(waitFor([&] { return isOtherRun.load(); }));
    EXPECT_FALSE(isRun);
}

TEST(DispatchQueue, KeepsTheQueueUntilDelayedWorkIsDone)
{
    std::atomic<bool> isRun = false;
    dispatch::after(dispatch_time(DISPATCH_TIME_NOW, 5'000'000), dispatch::Queue::serial("serial").get(),
                    [&] { isRun = true; });
    EXPECT_TRUE(waitFor([&] { return isRun.load(); }));
}

TEST(DispatchQueue, RunsItsItemsAlsoWhenNobodyHoldsItAnyMore)
{
    constexpr int kItemCount = 10;
    std::latch release(1);
    std::atomic<int> count = 0;
    {
        const auto queue = dispatch::Queue::serial("serial");
        dispatch::async(queue.get(), [&] { release.wait(); });
        for (int i = 0; i < kItemCount; ++i)
            dispatch::async(queue.get(), [&] { ++count; });
    }
    release.count_down();
    EXPECT_TRUE(waitFor([&] { return count == kItemCount; }));
}

TEST(DispatchQueue, NamesItsThreadsAndKeepsTheProcessesSignalsFromThem)
{
    std::string name;
    sigset_t blocked;
    std::atomic<bool> isRun = false;
    dispatch::async(global(QOS_CLASS_DEFAULT), [&] {
        std::array<char, 16> text{};
        pthread_getname_np(pthread_self(), text.data(), text.size());
        name = text.data();
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        isRun = true;
    });
    ASSERT_TRUE(waitFor([&] { return isRun.load(); }));
    EXPECT_EQ(name, "dispatch-worker");
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 1);
    EXPECT_EQ(sigismember(&blocked, SIGSEGV), 0);

    sigset_t own;
    pthread_sigmask(SIG_BLOCK, nullptr, &own);
    EXPECT_EQ(sigismember(&own, SIGTERM), 0);
}

TEST(DispatchMainDeathTest, GoesOnRunningQueuesAndEndsCleanly)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            dispatch::TimerSource timer(global(QOS_CLASS_USER_INTERACTIVE));
            timer.setEventHandler([] {});
            timer.schedule(DISPATCH_TIME_NOW, NSEC_PER_MSEC);
            timer.resume();
            dispatch::after(dispatch_time(DISPATCH_TIME_NOW, 10'000'000), global(QOS_CLASS_DEFAULT),
                            [] { std::exit(7); });
            dispatch_main();
        },
        testing::ExitedWithCode(7), "");
}

TEST(DispatchMainDeathTest, BelongsToTheMainThread)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(std::thread([] { dispatch_main(); }).join(),
                 "BUG IN CLIENT OF LIBDISPATCH: dispatch_main\\(\\) must be called on the main thread");
}

}  // namespace
