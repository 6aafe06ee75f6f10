#include "Queue.h"
#include "Time.h"
#include "TimerThread.h"

namespace dispatch::runtime {

namespace {

// A call that is put on a queue when its time has come.
//
// Ownership: holds the queue. Owns itself from start() on.
class DelayedCall final : public Timer {
public:
    DelayedCall(dispatch_time_t when, Queue& queue, void* context, dispatch_function_t function)
        : Timer(when),
          queue_(queue),
          context_(context),
          function_(function)
    {
        queue_.retainInternally();
    }

    void start()
    {
        auto& thread = TimerThread::shared();
        const std::lock_guard lock(thread.mutex());
        thread.add(*this);
    }

private:
    ~DelayedCall() override = default;
    bool expire(dispatch_time_t) override
    {
        queue_.async(context_, function_);
        queue_.releaseInternally();
        delete this;
        return false;
    }

    Queue& queue_;
    void* const context_;
    const dispatch_function_t function_;
};

}  // namespace

}  // namespace dispatch::runtime

using namespace dispatch::runtime;

void dispatch_after_f(dispatch_time_t when, dispatch_queue_t queue, void* context, dispatch_function_t work)
{
    if (when > kLatestTime) return;
    auto& target = fromHandle<Queue>(queue);
    if (when <= now())
        target.async(context, work);
    else
        (new DelayedCall(when, target, context, work))->start();
}
