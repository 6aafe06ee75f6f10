#include "TimerThread.h"

#include "Platform/Support/Fatal.h"
#include "Thread.h"
#include "Time.h"

#include <sys/prctl.h>

#include <functional>

namespace dispatch::runtime {

TimerThread& TimerThread::shared()
{
    static auto* const thread = new TimerThread;
    return *thread;
}

TimerThread::TimerThread()
{
    const auto runThread = [](void* thread) -> void* { static_cast<TimerThread*>(thread)->run(); };
    pavo::require(startThread(runThread, this), "The system has no thread for dispatch timers");
}

bool TimerThread::Earlier::operator()(const Timer* left, const Timer* right) const
{
    if (left->deadline() != right->deadline()) return left->deadline() < right->deadline();
    return std::less<>()(left, right);
}

void TimerThread::add(Timer& timer)
{
    const auto place = timers_.insert(&timer).first;
    if (place == timers_.begin()) earliestChanged_.notify_one();
}

void TimerThread::remove(Timer& timer)
{
    timers_.erase(&timer);
}

void TimerThread::run()
{
    nameThisThread("dispatch-timer");
    // The system may let an ordinary thread sleep 50 µs longer than asked, to save power; timers are strict.
    ::prctl(PR_SET_TIMERSLACK, 1);
    std::unique_lock lock(mutex_);
    for (;;) {
        expireDue();
        if (timers_.empty())
            earliestChanged_.wait(lock);
        else
            earliestChanged_.wait_until(lock, timePoint((*timers_.begin())->deadline()));
    }
}

void TimerThread::expireDue()
{
    const dispatch_time_t now = runtime::now();
    while (!timers_.empty() && (*timers_.begin())->deadline() <= now) {
        auto place = timers_.extract(timers_.begin());
        if (place.value()->expire(now)) timers_.insert(std::move(place));
    }
}

}  // namespace dispatch::runtime
