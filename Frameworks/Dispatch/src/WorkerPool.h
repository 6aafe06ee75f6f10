#pragma once

#include "Level.h"
#include "Runnable.h"

#include <condition_variable>
#include <mutex>
#include <vector>

namespace dispatch::runtime {

// The threads behind all queues. The most urgent item that waits runs first.
//
// Ownership: the one pool is made at first use and never destroyed, so threads may run while the process
// ends. Threads:   one starts whenever an item arrives and none is idle, up to a limit: a worker that blocks
// therefore
//            never holds up the others. One that stays idle for some seconds ends. Nothing polls.
class WorkerPool final {
public:
    static constexpr int kThreadLimit = 64;

    static WorkerPool& shared();

    void enqueue(Runnable& item, Level level);

private:
    // Lives on the worker's stack while that is idle.
    struct IdleWorker {
        std::condition_variable isCalledChanged;
        bool isCalled = false;
    };

    WorkerPool() { idleWorkers_.reserve(kThreadLimit); }

    void startWorker();
    void work();
    bool runMostUrgent(std::unique_lock<std::mutex>& lock);
    bool waitForCall(std::unique_lock<std::mutex>& lock);

    std::mutex mutex_;
    std::array<RunnableList, kLevelCount> waiting_;  // guarded by mutex_, like the rest
    // The one that became idle last is called first: its caches are warm, and the others get to end.
    std::vector<IdleWorker*> idleWorkers_;
    int threadCount_ = 0;
};

}  // namespace dispatch::runtime
