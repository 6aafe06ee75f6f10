#pragma once

#include "Platform/Support/UniqueFd.h"

#include <pavo/producer.h>

#include <cstdint>

namespace pavo::producer {

// CLOCK_MONOTONIC now, in nanoseconds.
std::int64_t monotonicNs();
// When `timeoutNs` from now is; below zero: never.
std::int64_t deadlineAfter(std::int64_t timeoutNs);
inline constexpr std::int64_t kNever = INT64_MAX;

// A yes or no that threads and event loops wait for: a descriptor that polls as readable while it is raised.
//
// Threads: any. Whoever waits looks again at what the flag stands for: it may have been lowered since.
class Flag final {
public:
    Flag();

    // False where the system had no descriptor left.
    bool isValid() const { return descriptor_.isValid(); }
    int descriptor() const { return descriptor_.get(); }
    void raise() const;
    void lower() const;
    // PAVO_OK once it is raised, PAVO_TIMED_OUT at the deadline, PAVO_INTERRUPTED after a signal handler.
    pavo_status waitUntil(std::int64_t deadlineNs) const;

private:
    UniqueFd descriptor_;
};

}  // namespace pavo::producer
