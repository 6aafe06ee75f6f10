#include "Tests/Frameworks/Dispatch/DispatchTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <string>

namespace {

using pavo::test::waitFor;

struct Finalized {
    std::atomic<int> itemCount = 0;
    std::atomic<int> itemCountAtTheEnd = -1;
    dispatch_queue_t expectedQueue = nullptr;

    static void finish(void* context)
    {
        auto& self = *static_cast<Finalized*>(context);
        if (self.expectedQueue) dispatch_assert_queue(self.expectedQueue);
        self.itemCountAtTheEnd = self.itemCount.load();
    }
};

TEST(DispatchObject, CarriesAContext)
{
    int value = 0;
    const auto queue = dispatch::Queue::serial("serial");
    EXPECT_EQ(dispatch_get_context(queue.get()), nullptr);
    dispatch_set_context(queue.get(), &value);
    EXPECT_EQ(dispatch_get_context(queue.get()), &value);

    const auto global = dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0);
    dispatch_set_context(global, &value);
    EXPECT_EQ(dispatch_get_context(global), nullptr);
}

TEST(DispatchObject, RunsTheFinalizerOfAQueueAfterItsLastItem)
{
    Finalized finalized;
    finalized.expectedQueue = dispatch_get_global_queue(QOS_CLASS_UTILITY, 0);
    std::latch release(1);
    {
        const auto queue = dispatch::Queue::serial("serial", QOS_CLASS_UTILITY);
        dispatch_set_context(queue.get(), &finalized);
        dispatch_set_finalizer_f(queue.get(), Finalized::finish);
        dispatch::async(queue.get(), [&] { release.wait(); });
        for (int i = 0; i < 3; ++i)
            dispatch::async(queue.get(), [&] { ++finalized.itemCount; });
    }
    EXPECT_EQ(finalized.itemCountAtTheEnd, -1);
    release.count_down();
    EXPECT_TRUE(waitFor([&] { return finalized.itemCountAtTheEnd == 3; }));
}

TEST(DispatchObject, RunsTheFinalizerOfASourceOnItsQueueAfterItsHandler)
{
    Finalized finalized;
    std::atomic<bool> isHandlerRunning = false;
    static std::latch* release = nullptr;
    std::latch latch(1);
    release = &latch;
    static std::atomic<bool>* isRunning = nullptr;
    isRunning = &isHandlerRunning;
    {
        const auto queue = dispatch::Queue::serial("serial");
        finalized.expectedQueue = queue.get();
        const pavo::test::Source source(queue.get());
        dispatch_set_context(source.get(), &finalized);
        dispatch_set_finalizer_f(source.get(), Finalized::finish);
        dispatch_source_set_event_handler_f(source.get(), [](void* context) {
            *isRunning = true;
            release->wait();
            ++static_cast<Finalized*>(context)->itemCount;
        });
        dispatch_source_set_timer(source.get(), DISPATCH_TIME_NOW, DISPATCH_TIME_FOREVER, 0);
        dispatch_resume(source.get());
        ASSERT_TRUE(waitFor([&] { return isHandlerRunning.load(); }));
    }
    EXPECT_EQ(finalized.itemCountAtTheEnd, -1);
    release->count_down();
    EXPECT_TRUE(waitFor([&] { return finalized.itemCountAtTheEnd == 1; }));
}

TEST(DispatchObject, RunsNoFinalizerWithoutAContext)
{
    static std::atomic<int> count;
    count = 0;
    const auto finalizer = [](void*) { ++count; };
    int context = 0;
    {
        const auto without = dispatch::Queue::serial("without");
        dispatch_set_finalizer_f(without.get(), finalizer);
        const auto with = dispatch::Queue::serial("with");
        dispatch_set_finalizer_f(with.get(), finalizer);
        dispatch_set_context(with.get(), &context);
    }
    // The one that has a context is released first, so its finalizer may run first; the other's never comes.
    EXPECT_TRUE(waitFor([] { return count == 1; }));
    dispatch::Queue last = dispatch::Queue::serial("last");
    dispatch_set_finalizer_f(last.get(), finalizer);
    dispatch_set_context(last.get(), &context);
    last = {};
    EXPECT_TRUE(waitFor([] { return count == 2; }));
}

TEST(DispatchObject, LivesAsLongAsSomebodyHoldsIt)
{
    Finalized finalized;
    auto* const semaphore = dispatch_semaphore_create(1);
    dispatch_set_context(semaphore, &finalized);
    dispatch_set_finalizer_f(semaphore, Finalized::finish);
    dispatch_retain(semaphore);
    dispatch_release(semaphore);
    EXPECT_EQ(dispatch_semaphore_wait(semaphore, DISPATCH_TIME_NOW), 0);
    EXPECT_EQ(dispatch_semaphore_signal(semaphore), 0);
    EXPECT_EQ(finalized.itemCountAtTheEnd, -1);
    dispatch_release(semaphore);
    EXPECT_TRUE(waitFor([&] { return finalized.itemCountAtTheEnd == 0; }));
}

TEST(DispatchObjectDeathTest, EndsTheProcessOnAnOverRelease)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            // The item keeps the queue, so that the second release still finds it.
            auto* const queue = dispatch_queue_create("serial", DISPATCH_QUEUE_SERIAL);
            std::latch release(1);
            dispatch::async(queue, [&] { release.wait(); });
            dispatch_release(queue);
            dispatch_release(queue);
        },
        "BUG IN CLIENT OF LIBDISPATCH: Over-release of an object");
}

}  // namespace
