#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace pavo::test {

// Sees a PipeWire daemon come, and a node in it. All that takes time of its own is ready before, so that the
// times are the daemon's and the node's.
//
// Threads: the test's own. It has one itself, so it comes after the session, which changes the environment.
class DaemonObserver {
public:
    using Clock = std::chrono::steady_clock;
    struct Times {
        Clock::time_point answered;  // by the daemon
        Clock::time_point seen;      // the node
    };

    explicit DaemonObserver(std::string nodeName);
    ~DaemonObserver();
    DaemonObserver(const DaemonObserver&) = delete;
    DaemonObserver& operator=(const DaemonObserver&) = delete;

    // Connects to the daemon, whose socket is there, and waits for the node. None where either does not come.
    std::optional<Times> observe();

private:
    struct Impl;

    std::unique_ptr<Impl> impl_;
};

}  // namespace pavo::test
