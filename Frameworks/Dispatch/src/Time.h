#pragma once

#include <dispatch/time.h>

#include <chrono>
#include <cstdint>
#include <limits>

namespace dispatch::runtime {

// Whatever is later counts as for ever: the standard library's clocks end here.
inline constexpr dispatch_time_t kLatestTime = std::numeric_limits<std::int64_t>::max();

// Nanoseconds of CLOCK_MONOTONIC, the host clock.
inline std::uint64_t now()
{
    return static_cast<std::uint64_t>(
        std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count());
}

// The same instant for the standard library's timed waits. Not for DISPATCH_TIME_FOREVER.
inline std::chrono::steady_clock::time_point timePoint(dispatch_time_t time)
{
    return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(time));
}

}  // namespace dispatch::runtime
