#include "Platform/CoreMediaIO/linux/FrameTally.h"

#include <algorithm>

namespace cmio {

namespace {

constexpr std::chrono::seconds kWindow(2);

}  // namespace

void FrameTally::sent()
{
    const std::lock_guard lock(mutex_);
    ++counts_.sent;
}

void FrameTally::drawn(bool isForeign, Clock::time_point now)
{
    const std::lock_guard lock(mutex_);
    times_[counts_.drawn++ % times_.size()] = now;
    counts_.isForeign = isForeign;
}

void FrameTally::dropped(Drop reason)
{
    const std::lock_guard lock(mutex_);
    switch (reason) {
    case Drop::replaced:
        ++counts_.replaced;
        break;
    case Drop::withoutBuffer:
        ++counts_.withoutBuffer;
        break;
    case Drop::unusable:
        ++counts_.unusable;
        break;
    case Drop::unwatched:
        ++counts_.unwatched;
        break;
    }
}

FrameCounts FrameTally::counts(Clock::time_point now) const
{
    const std::lock_guard lock(mutex_);
    FrameCounts counts = counts_;
    counts.framesPerSecond = framesPerSecond(now);
    return counts;
}

double FrameTally::framesPerSecond(Clock::time_point now) const
{
    std::uint64_t frames = 0;
    Clock::time_point first;
    while (frames < std::min<std::uint64_t>(counts_.drawn, times_.size())) {
        const auto time = times_[(counts_.drawn - 1 - frames) % times_.size()];
        if (now - time > kWindow) break;
        first = time;
        ++frames;
    }
    if (frames < 2) return 0;
    using Seconds = std::chrono::duration<double>;
    const Clock::time_point last = times_[(counts_.drawn - 1) % times_.size()];
    const double intervals = static_cast<double>(frames - 1);
    const double period = Seconds(last - first).count() / intervals;
    if (period <= 0) return 0;
    // Frames that have stopped coming count as if the next one came now.
    const double late = Seconds(now - last).count();
    return late > 2 * period ? (intervals + 1) / (intervals * period + late) : 1 / period;
}

}  // namespace cmio
