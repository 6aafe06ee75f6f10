#include "SerialQueue.h"

#include "ClientBug.h"
#include "GlobalQueue.h"

#include <condition_variable>

namespace dispatch::runtime {

namespace {

// A call that another thread waits for.
class AwaitedCall final : public Runnable {
public:
    AwaitedCall(const Queue& queue, void* context, dispatch_function_t function)
        : queue_(queue),
          context_(context),
          function_(function)
    {}

    void wait()
    {
        std::unique_lock lock(mutex_);
        isDoneChanged_.wait(lock, [this] { return isDone_; });
    }

private:
    bool run() override
    {
        {
            // For the call it is as if the waiting thread ran it.
            const QueueFrame frame(queue_, callersFrame_);
            function_(context_);
        }
        // Signalled with the lock held: without it the waiter could be gone before the signal.
        const std::lock_guard lock(mutex_);
        isDone_ = true;
        isDoneChanged_.notify_one();
        return false;
    }

    const Queue& queue_;
    void* const context_;
    const dispatch_function_t function_;
    const QueueFrame* const callersFrame_ = QueueFrame::current();
    std::mutex mutex_;
    std::condition_variable isDoneChanged_;
    bool isDone_ = false;
};

}  // namespace

void SerialQueue::enqueue(Runnable& item)
{
    const std::lock_guard lock(mutex_);
    items_.push(item);
    requestTurn();
}

void SerialQueue::requestTurn()
{
    if (isTaken_ || !hasTurnAhead()) return;
    isTaken_ = true;
    retainInternally();
    target_.enqueue(*this);
}

bool SerialQueue::run()
{
    std::unique_lock lock(mutex_);
    if (hasTurnAhead()) {
        Runnable* const item = items_.pop();
        lock.unlock();
        bool runsAgain = false;
        {
            const QueueFrame frame(*this);
            runsAgain = item->run();
        }
        lock.lock();
        if (runsAgain) items_.push(*item);
        if (hasTurnAhead()) return true;
    }
    isTaken_ = false;
    lock.unlock();
    releaseInternally();
    return false;
}

void SerialQueue::sync(void* context, dispatch_function_t function)
{
    if (QueueFrame::contains(*this))
        clientBug("dispatch_sync called on queue already owned by current thread");
    if (tryRunHere(context, function)) return;
    AwaitedCall call(*this, context, function);
    enqueue(call);
    call.wait();
}

bool SerialQueue::tryRunHere(void* context, dispatch_function_t function)
{
    std::unique_lock lock(mutex_);
    if (isTaken_ || !items_.isEmpty() || suspendCount_ > 0) return false;
    isTaken_ = true;
    lock.unlock();
    {
        const QueueFrame frame(*this);
        function(context);
    }
    lock.lock();
    isTaken_ = false;
    requestTurn();
    return true;
}

void SerialQueue::suspend()
{
    const std::lock_guard lock(mutex_);
    ++suspendCount_;
}

void SerialQueue::resume()
{
    const std::lock_guard lock(mutex_);
    if (suspendCount_ == 0) clientBug("Over-resume of an object");
    --suspendCount_;
    requestTurn();
}

Queue& SerialQueue::finalizerQueue() const
{
    return target_;
}

void SerialQueue::abandon()
{
    const std::lock_guard lock(mutex_);
    if (suspendCount_ > 0) clientBug("Release of a suspended object");
}

}  // namespace dispatch::runtime
