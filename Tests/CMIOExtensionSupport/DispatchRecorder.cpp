#include "Tests/CMIOExtensionSupport/DispatchRecorder.h"

#include <optional>

namespace pavo::test {

DispatchRecorder& DispatchRecorder::shared()
{
    static auto& instance = *new DispatchRecorder;
    return instance;
}

std::size_t DispatchRecorder::delayedCount() const
{
    const std::lock_guard lock(mutex_);
    return delayed_.size();
}

std::int64_t DispatchRecorder::delayOfOldest() const
{
    const std::lock_guard lock(mutex_);
    return delayed_.empty() ? -1 : delayed_.front().delayNanoseconds;
}

std::string DispatchRecorder::queueOfOldest() const
{
    const std::lock_guard lock(mutex_);
    return delayed_.empty() ? "" : dispatch_queue_get_label(delayed_.front().queue);
}

bool DispatchRecorder::runOldest()
{
    std::optional<Delayed> oldest;
    {
        const std::lock_guard lock(mutex_);
        if (delayed_.empty()) return false;
        oldest = delayed_.front();
        delayed_.erase(delayed_.begin());
    }
    dispatch_async_f(oldest->queue, oldest->context, oldest->work);
    dispatch_sync_f(oldest->queue, nullptr, [](void*) {});
    dispatch_release(oldest->queue);
    return true;
}

void DispatchRecorder::add(const Delayed& delayed)
{
    dispatch_retain(delayed.queue);
    const std::lock_guard lock(mutex_);
    delayed_.push_back(delayed);
}

}  // namespace pavo::test

namespace {

thread_local std::int64_t lastDelta = 0;

}  // namespace

extern "C" {

dispatch_time_t __real_dispatch_time(dispatch_time_t, int64_t);
dispatch_time_t __wrap_dispatch_time(dispatch_time_t when, int64_t delta)
{
    lastDelta = when == DISPATCH_TIME_NOW ? delta : -1;
    return __real_dispatch_time(when, delta);
}

void __wrap_dispatch_after_f(dispatch_time_t, dispatch_queue_t queue, void* context, dispatch_function_t work)
{
    pavo::test::DispatchRecorder::shared().add({lastDelta, queue, context, work});
}

}  // extern "C"
