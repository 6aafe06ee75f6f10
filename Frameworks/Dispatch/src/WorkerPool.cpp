#include "WorkerPool.h"

#include "GlobalQueue.h"
#include "Platform/Support/Fatal.h"
#include "Thread.h"

#include <chrono>

namespace dispatch::runtime {

namespace {

constexpr std::chrono::seconds kIdleTime{5};

}  // namespace

WorkerPool& WorkerPool::shared()
{
    static auto* const pool = new WorkerPool;
    return *pool;
}

void WorkerPool::enqueue(Runnable& item, Level level)
{
    std::unique_lock lock(mutex_);
    waiting_[static_cast<std::size_t>(level)].push(item);
    if (!idleWorkers_.empty()) {
        IdleWorker& worker = *idleWorkers_.back();
        idleWorkers_.pop_back();
        worker.isCalled = true;
        // With the lock held: the worker's end would take the condition with it.
        worker.isCalledChanged.notify_one();
        return;
    }
    if (threadCount_ == kThreadLimit) return;
    ++threadCount_;
    lock.unlock();
    startWorker();
}

void WorkerPool::startWorker()
{
    const auto workForPool = [](void* pool) -> void* {
        static_cast<WorkerPool*>(pool)->work();
        return nullptr;
    };
    if (startThread(workForPool, this)) return;
    // Passing trouble while others are there to do the work; without any it would wait for ever.
    const std::lock_guard lock(mutex_);
    --threadCount_;
    pavo::require(threadCount_ > 0, "The system has no thread for dispatch queues");
}

void WorkerPool::work()
{
    nameThisThread("dispatch-worker");
    std::unique_lock lock(mutex_);
    do {
        while (runMostUrgent(lock)) {
        }
    } while (waitForCall(lock));
    --threadCount_;
}

bool WorkerPool::runMostUrgent(std::unique_lock<std::mutex>& lock)
{
    for (const Level level : kLevels) {
        auto& waiting = waiting_[static_cast<std::size_t>(level)];
        Runnable* const item = waiting.pop();
        if (!item) continue;
        lock.unlock();
        bool runsAgain = false;
        {
            const QueueFrame frame(GlobalQueue::withLevel(level));
            runsAgain = item->run();
        }
        lock.lock();
        // Nobody is called for it: this worker looks again next.
        if (runsAgain) waiting.push(*item);
        return true;
    }
    return false;
}

bool WorkerPool::waitForCall(std::unique_lock<std::mutex>& lock)
{
    IdleWorker self;
    idleWorkers_.push_back(&self);
    if (self.isCalledChanged.wait_for(lock, kIdleTime, [&self] { return self.isCalled; })) return true;
    std::erase(idleWorkers_, &self);
    return false;
}

}  // namespace dispatch::runtime
