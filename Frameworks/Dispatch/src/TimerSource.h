#pragma once

#include "Object.h"
#include "Runnable.h"
#include "TimerThread.h"

#include <dispatch/source.h>

namespace dispatch::runtime {

class Queue;

// A source whose event is the passing of time.
//
// Deadlines are start + n × interval, whatever happens: a late fire does not shift the later ones. A deadline
// that passes while the last fire still waits or runs only marks the source; so missed fires become one.
//
// Ownership: holds its queue, and itself while it waits or runs there.
// Threads:   all state is guarded by the timer thread's mutex. The handler runs without it.
class TimerSource final : public Object, private Runnable, private Timer {
public:
    explicit TimerSource(Queue& queue);

    void schedule(dispatch_time_t start, std::uint64_t interval);
    void setHandler(dispatch_function_t handler);
    void cancel();
    bool isCancelled() const;

    void activate() override;
    void suspend() override;
    void resume() override;

private:
    ~TimerSource() override;
    Queue& finalizerQueue() const override { return queue_; }
    void abandon() override;
    bool run() override;
    bool expire(dispatch_time_t now) override;

    // What follows wants the mutex held.
    bool mayFire() const { return !isInactive_ && suspendCount_ == 0 && !isCancelled_; }
    // Brings the timer thread and the queue in line with the state, after any change.
    void update();
    // To the first deadline after `now`.
    void passDeadline(dispatch_time_t now);
    void requestRun();
    void fire(std::unique_lock<std::mutex>& lock);

    Queue& queue_;
    std::uint64_t interval_ = DISPATCH_TIME_FOREVER;
    dispatch_function_t handler_ = nullptr;
    int suspendCount_ = 0;
    bool isInactive_ = true;
    bool isCancelled_ = false;
    bool isAdded_ = false;     // to the timer thread
    bool isPending_ = false;   // a deadline passed since the last fire began
    bool isEnqueued_ = false;  // it waits on the queue, or runs
};

}  // namespace dispatch::runtime
