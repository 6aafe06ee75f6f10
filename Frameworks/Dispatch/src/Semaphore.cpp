#include "ClientBug.h"
#include "Object.h"
#include "Time.h"

#include <dispatch/semaphore.h>

#include <condition_variable>
#include <mutex>

namespace dispatch::runtime {

namespace {

// Counts what may be taken without waiting.
class Semaphore final : public Object {
public:
    explicit Semaphore(std::intptr_t value) : firstValue_(value), value_(value) {}

    // False when the time is up.
    bool take(dispatch_time_t timeout)
    {
        std::unique_lock lock(mutex_);
        ++waiterCount_;
        const auto isFree = [this] { return value_ > 0; };
        bool isTaken = true;
        if (timeout > kLatestTime)
            isFreeChanged_.wait(lock, isFree);
        else if (timeout == DISPATCH_TIME_NOW)
            isTaken = isFree();
        else
            isTaken = isFreeChanged_.wait_until(lock, timePoint(timeout), isFree);
        --waiterCount_;
        if (isTaken) --value_;
        return isTaken;
    }

    // Whether it wakes somebody.
    bool give()
    {
        // Signalled with the lock held: the one who wakes may let go of the last reference.
        const std::lock_guard lock(mutex_);
        ++value_;
        if (waiterCount_ < value_) return false;
        isFreeChanged_.notify_one();
        return true;
    }

private:
    void abandon() override
    {
        const std::lock_guard lock(mutex_);
        if (value_ < firstValue_) clientBug("Semaphore object deallocated while in use");
    }

    const std::intptr_t firstValue_;
    std::mutex mutex_;
    std::condition_variable isFreeChanged_;
    std::intptr_t value_;
    std::intptr_t waiterCount_ = 0;
};

}  // namespace

}  // namespace dispatch::runtime

using namespace dispatch::runtime;

dispatch_semaphore_t dispatch_semaphore_create(intptr_t value)
{
    return value < 0 ? nullptr : toHandle<dispatch_semaphore_t>(*new Semaphore(value));
}

intptr_t dispatch_semaphore_wait(dispatch_semaphore_t semaphore, dispatch_time_t timeout)
{
    constexpr std::intptr_t kTimedOut = 49;  // KERN_OPERATION_TIMED_OUT
    return fromHandle<Semaphore>(semaphore).take(timeout) ? 0 : kTimedOut;
}

intptr_t dispatch_semaphore_signal(dispatch_semaphore_t semaphore)
{
    return fromHandle<Semaphore>(semaphore).give() ? 1 : 0;
}
