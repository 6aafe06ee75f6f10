#pragma once

#include <dispatch/dispatch.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

// In place of dispatch_after_f: delayed work waits until the test lets it run, so that no test waits for
// time.
namespace pavo::test {

class DispatchRecorder final {
public:
    struct Delayed {
        std::int64_t delayNanoseconds;  // as the caller asked dispatch_time for it, from now
        dispatch_queue_t queue;
        void* context;
        dispatch_function_t work;
    };

    static DispatchRecorder& shared();

    // How many pieces of delayed work wait.
    std::size_t delayedCount() const;
    // Of the oldest one; -1 and empty where none waits.
    std::int64_t delayOfOldest() const;
    std::string queueOfOldest() const;
    // Runs the oldest one on its queue, as the passing of its time would, and waits for it. False where none
    // waits.
    bool runOldest();

    // For the functions that stand in place of dispatch's.
    void add(const Delayed& delayed);

private:
    DispatchRecorder() = default;

    mutable std::mutex mutex_;
    std::vector<Delayed> delayed_;
};

}  // namespace pavo::test
