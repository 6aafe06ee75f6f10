#pragma once

#include <dispatch/time.h>

#include <condition_variable>
#include <mutex>
#include <set>

namespace dispatch::runtime {

// Something that is due at an absolute time.
class Timer {
public:
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    dispatch_time_t deadline() const { return deadline_; }

protected:
    explicit Timer(dispatch_time_t deadline) : deadline_(deadline) {}
    virtual ~Timer() = default;

    dispatch_time_t deadline_;  // guarded by the timer thread's mutex; fixed while it is added there

private:
    friend class TimerThread;
    // The deadline has passed. With the mutex held. True: the timer has a later deadline and stays; false: it
    // leaves, and may be gone.
    virtual bool expire(dispatch_time_t now) = 0;
};

// The thread that waits for the earliest deadline. It sleeps while there is none, and starts with the first
// timer.
//
// Ownership: the one instance is made at first use and never destroyed. Timers are borrowed until they leave.
// Threads:   one mutex guards the timers that are added and the state of all timer sources; a queue's lock
//            may be taken while it is held, never the other way round.
class TimerThread final {
public:
    static TimerThread& shared();

    std::mutex& mutex() { return mutex_; }
    // With the mutex held. The timer must not be added yet, or must be added, respectively.
    void add(Timer& timer);
    void remove(Timer& timer);

private:
    struct Earlier {
        bool operator()(const Timer* left, const Timer* right) const;
    };

    TimerThread();
    [[noreturn]] void run();
    void expireDue();

    std::mutex mutex_;
    std::condition_variable earliestChanged_;
    std::set<Timer*, Earlier> timers_;
};

}  // namespace dispatch::runtime
