#include "Platform/CoreMediaIO/linux/PipeWireLoop.h"

#include "Platform/CoreMediaIO/linux/PipeWireHeaders.h"
#include "Platform/Support/Fatal.h"

namespace cmio {

PipeWireLoop::Lock::Lock(PipeWireLoop& loop) : loop_(loop.loop_)
{
    pw_thread_loop_lock(loop_);
}

PipeWireLoop::Lock::~Lock()
{
    pw_thread_loop_unlock(loop_);
}

PipeWireLoop::PipeWireLoop()
{
    pw_init(nullptr, nullptr);
    loop_ = pw_thread_loop_new("pavo-pipewire", nullptr);
    pavo::require(loop_ && pw_thread_loop_start(loop_) == 0, "PipeWire's loop thread cannot start");
}

PipeWireLoop::~PipeWireLoop()
{
    pw_thread_loop_stop(loop_);
    pw_thread_loop_destroy(loop_);
    pw_deinit();
}

pw_loop* PipeWireLoop::get() const
{
    return pw_thread_loop_get_loop(loop_);
}

LoopTask::LoopTask(PipeWireLoop& loop, std::function<void()> work) : loop_(loop.get()), work_(std::move(work))
{
    const auto run = [](void* self, std::uint64_t) { static_cast<LoopTask*>(self)->work_(); };
    timer_ = pw_loop_add_timer(loop_, run, this);
    pavo::require(timer_ != nullptr, "PipeWire's loop has no timer to give");
}

LoopTask::~LoopTask()
{
    pw_loop_destroy_source(loop_, timer_);
}

void LoopTask::scheduleAfter(std::chrono::milliseconds delay)
{
    // A time of zero would disarm the timer.
    const auto nanoseconds = std::chrono::nanoseconds(delay).count() + 1;
    timespec when{};
    when.tv_sec = static_cast<time_t>(nanoseconds / 1'000'000'000);
    when.tv_nsec = static_cast<long>(nanoseconds % 1'000'000'000);
    pw_loop_update_timer(loop_, timer_, &when, nullptr, false);
}

}  // namespace cmio
