#include "TimerSource.h"

#include "ClientBug.h"
#include "GlobalQueue.h"
#include "Time.h"

#include <algorithm>

struct dispatch_source_type_s {
    std::uintptr_t allowedMask;
};
const dispatch_source_type_s _dispatch_source_type_timer = {DISPATCH_TIMER_STRICT};

namespace dispatch::runtime {

namespace {

std::mutex& timerMutex()
{
    return TimerThread::shared().mutex();
}

}  // namespace

TimerSource::TimerSource(Queue& queue) : Timer(DISPATCH_TIME_FOREVER), queue_(queue)
{
    queue_.retainInternally();
}

TimerSource::~TimerSource()
{
    queue_.releaseInternally();
}

void TimerSource::schedule(dispatch_time_t start, std::uint64_t interval)
{
    const std::lock_guard lock(timerMutex());
    if (isAdded_) TimerThread::shared().remove(*this);
    isAdded_ = false;
    isPending_ = false;
    deadline_ = dispatch_time(start, 0);  // reads the clock for "now"
    interval_ = std::max<std::uint64_t>(interval, 1);
    update();
}

void TimerSource::setHandler(dispatch_function_t handler)
{
    const std::lock_guard lock(timerMutex());
    handler_ = handler;
}

void TimerSource::cancel()
{
    const std::lock_guard lock(timerMutex());
    isCancelled_ = true;
    update();
}

bool TimerSource::isCancelled() const
{
    const std::lock_guard lock(timerMutex());
    return isCancelled_;
}

void TimerSource::activate()
{
    const std::lock_guard lock(timerMutex());
    isInactive_ = false;
    update();
}

void TimerSource::suspend()
{
    const std::lock_guard lock(timerMutex());
    ++suspendCount_;
    update();
}

void TimerSource::resume()
{
    const std::lock_guard lock(timerMutex());
    if (suspendCount_ > 0)
        --suspendCount_;
    else if (isInactive_)
        isInactive_ = false;
    else
        clientBug("Over-resume of an object");
    update();
}

void TimerSource::abandon()
{
    const std::lock_guard lock(timerMutex());
    if (isInactive_) clientBug("Release of an inactive object");
    if (suspendCount_ > 0) clientBug("Release of a suspended object");
    // Nobody is left who could want its events.
    isCancelled_ = true;
    update();
}

void TimerSource::update()
{
    auto& thread = TimerThread::shared();
    if (!mayFire()) {
        if (isAdded_) thread.remove(*this);
        isAdded_ = false;
        return;
    }
    if (!isAdded_) {
        const dispatch_time_t time = now();
        if (deadline_ <= time) passDeadline(time);
        isAdded_ = deadline_ != DISPATCH_TIME_FOREVER;
        if (isAdded_) thread.add(*this);
    }
    if (isPending_) requestRun();
}

void TimerSource::requestRun()
{
    if (isEnqueued_) return;
    isEnqueued_ = true;
    retainInternally();
    queue_.enqueue(*this);
}

void TimerSource::passDeadline(dispatch_time_t time)
{
    isPending_ = true;
    const std::uint64_t missed = (time - deadline_) / interval_;
    const std::uint64_t room = (kLatestTime - deadline_) / interval_;
    deadline_ = missed < room ? deadline_ + (missed + 1) * interval_ : DISPATCH_TIME_FOREVER;
}

bool TimerSource::expire(dispatch_time_t time)
{
    passDeadline(time);
    isAdded_ = deadline_ != DISPATCH_TIME_FOREVER;
    requestRun();
    return isAdded_;
}

bool TimerSource::run()
{
    std::unique_lock lock(timerMutex());
    if (mayFire() && isPending_) fire(lock);
    if (mayFire() && isPending_) return true;
    isEnqueued_ = false;
    lock.unlock();
    releaseInternally();
    return false;
}

void TimerSource::fire(std::unique_lock<std::mutex>& lock)
{
    isPending_ = false;
    const dispatch_function_t handler = handler_;
    lock.unlock();
    if (handler) handler(context());
    lock.lock();
}

}  // namespace dispatch::runtime

using dispatch::runtime::fromHandle;
using dispatch::runtime::GlobalQueue;
using dispatch::runtime::Level;
using dispatch::runtime::Queue;
using dispatch::runtime::TimerSource;
using dispatch::runtime::toHandle;

dispatch_source_t dispatch_source_create(dispatch_source_type_t type, uintptr_t handle, uintptr_t mask,
                                         dispatch_queue_t queue)
{
    if (type != DISPATCH_SOURCE_TYPE_TIMER || handle != 0 || (mask & ~type->allowedMask) != 0) return nullptr;
    Queue& target = queue ? fromHandle<Queue>(queue) : GlobalQueue::withLevel(Level::standard);
    return toHandle<dispatch_source_t>(*new TimerSource(target));
}

void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start, uint64_t interval, uint64_t)
{
    // The leeway is how late a fire may be; none ever needs to be.
    fromHandle<TimerSource>(source).schedule(start, interval);
}

void dispatch_source_set_event_handler_f(dispatch_source_t source, dispatch_function_t handler)
{
    fromHandle<TimerSource>(source).setHandler(handler);
}

void dispatch_source_cancel(dispatch_source_t source)
{
    fromHandle<TimerSource>(source).cancel();
}

intptr_t dispatch_source_testcancel(dispatch_source_t source)
{
    return fromHandle<TimerSource>(source).isCancelled() ? 1 : 0;
}
