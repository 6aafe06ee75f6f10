#include "CMIOExtensionSupport/RepeatingTimer.h"

#include "Platform/Support/Fatal.h"

#include <cstdint>
#include <limits>
#include <utility>

namespace pavo {

namespace {

constexpr double kNanosecondsPerSecond = 1e9;
constexpr double kTwoToThe63 = 9223372036854775808.0;
constexpr double kTwoToThe64 = 18446744073709551616.0;

// Parts of a nanosecond are cut off, what is too long is as long as can be.
dispatch_time_t deadlineAfter(double seconds)
{
    const double nanoseconds = seconds * kNanosecondsPerSecond;
    const auto delta = nanoseconds < kTwoToThe63 ? static_cast<std::int64_t>(nanoseconds)
                                                 : std::numeric_limits<std::int64_t>::max();
    return dispatch_time(DISPATCH_TIME_NOW, delta);
}

// An infinite period is none. Any other has to be a time.
std::uint64_t periodOf(double seconds)
{
    const double nanoseconds = seconds * kNanosecondsPerSecond;
    if (nanoseconds == std::numeric_limits<double>::infinity()) return DISPATCH_TIME_FOREVER;
    require(nanoseconds > -1 && nanoseconds < kTwoToThe64,
            "The time interval is not a number of nanoseconds");
    return static_cast<std::uint64_t>(nanoseconds);
}

}  // namespace

std::shared_ptr<RepeatingTimer> RepeatingTimer::create(double timeInterval)
{
    const std::shared_ptr<RepeatingTimer> timer(new RepeatingTimer(timeInterval));
    timer->installHandler();
    return timer;
}

RepeatingTimer::RepeatingTimer(double timeInterval)
    : timeInterval_(timeInterval),
      timer_(dispatch_get_global_queue(QOS_CLASS_USER_INTERACTIVE, 0))
{
    const std::uint64_t period = periodOf(timeInterval);
    timer_.schedule(deadlineAfter(timeInterval), period);
}

RepeatingTimer::~RepeatingTimer()
{
    timer_.setEventHandler({});
    timer_.cancel();
    // Not through the setter: the source stays as it is. The handle resumes a suspended one when it lets it
    // go, as the platform demands.
    isRunning_ = true;
    eventHandler_ = nullptr;
}

void RepeatingTimer::installHandler()
{
    timer_.setEventHandler([weakSelf = weak_from_this()] {
        const auto self = weakSelf.lock();
        if (!self) return;
        if (const auto handler = self->eventHandler_) (*handler)();
    });
}

std::function<void()> RepeatingTimer::eventHandler() const
{
    return eventHandler_ ? *eventHandler_ : std::function<void()>();
}

void RepeatingTimer::setEventHandler(std::function<void()> eventHandler)
{
    eventHandler_ =
        eventHandler ? std::make_shared<const std::function<void()>>(std::move(eventHandler)) : nullptr;
}

void RepeatingTimer::setIsRunning(bool isRunning)
{
    const bool wasRunning = std::exchange(isRunning_, isRunning);
    if (isRunning == wasRunning) return;
    if (isRunning)
        timer_.resume();
    else
        timer_.suspend();
}

}  // namespace pavo
