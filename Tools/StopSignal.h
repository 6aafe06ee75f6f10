#pragma once

#include "Platform/Support/UniqueFd.h"

#include <cstdint>

namespace pavo::tools {

// The wish to end the program, as a descriptor that can be waited for: SIGINT, SIGTERM and SIGHUP.
//
// Threads: made on the main thread before any other thread is started, since threads inherit what it blocks.
class StopSignal final {
public:
    StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    // Readable once a signal has come.
    int descriptor() const { return descriptor_.get(); }
    bool hasCome() const;
    // Waits until a signal comes or CLOCK_MONOTONIC shows that time. True: a signal has come.
    bool waitUntil(std::int64_t monotonicNs) const;
    // Waits for a signal.
    void wait() const;

private:
    UniqueFd descriptor_;
};

// CLOCK_MONOTONIC now.
std::int64_t monotonicNs();
inline constexpr std::int64_t kSecondNs = 1'000'000'000;

}  // namespace pavo::tools
