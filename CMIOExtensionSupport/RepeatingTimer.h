#pragma once

#include "Platform/Support/Dispatch.h"

#include <functional>
#include <memory>

namespace pavo {

// Calls an optional handler at a fixed interval, on the global queue for user-interactive work. It is paused
// at first. The schedule is fixed at construction: a pause skips deadlines, it does not shift them.
//
// Ownership: owns its timer source. The source knows the timer only weakly, so a fire that begins after the
//            last reference is gone does nothing. The timer may be let go of in any state, also by its own
//            handler.
// Threads:   the owner uses it from one context at a time. A fire reads `eventHandler` only, without a lock:
//            it is set while the timer is paused, or by the handler itself.
class RepeatingTimer final : public std::enable_shared_from_this<RepeatingTimer> {
public:
    // `timeInterval` is in seconds, and both the first delay and the period.
    static std::shared_ptr<RepeatingTimer> create(double timeInterval);
    ~RepeatingTimer();
    RepeatingTimer(const RepeatingTimer&) = delete;
    RepeatingTimer& operator=(const RepeatingTimer&) = delete;

    double timeInterval() const { return timeInterval_; }

    // Empty while nobody wants the fires.
    std::function<void()> eventHandler() const;
    void setEventHandler(std::function<void()> eventHandler);

    bool isRunning() const { return isRunning_; }
    // Starts or pauses the fires. The same value again changes nothing.
    void setIsRunning(bool isRunning);

private:
    explicit RepeatingTimer(double timeInterval);

    void installHandler();

    const double timeInterval_;
    dispatch::TimerSource timer_;
    // Shared with the fire under way, which may be the one that replaces it.
    std::shared_ptr<const std::function<void()>> eventHandler_;
    bool isRunning_ = false;
};

}  // namespace pavo
