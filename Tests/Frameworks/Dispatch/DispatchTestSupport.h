#pragma once

#include "Platform/Support/Dispatch.h"
#include "Tests/Support/Wait.h"

#include <dispatch/dispatch.h>

#include <cstdint>
#include <utility>

namespace pavo::test {

inline dispatch_time_t now()
{
    return dispatch_time(DISPATCH_TIME_NOW, 0);
}

// For what must not happen too early or too often, time itself is the condition to wait for.
inline bool waitForTime(dispatch_time_t time)
{
    return waitFor([time] { return now() >= time; });
}

// A reference to a source of its own kind: released, and never resumed behind the test's back.
class Source {
public:
    explicit Source(dispatch_queue_t queue = nullptr)
        : source_(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, DISPATCH_TIMER_STRICT, queue))
    {}
    ~Source() { dispatch_release(source_); }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    dispatch_source_t get() const { return source_; }

private:
    dispatch_source_t source_;
};

}  // namespace pavo::test
