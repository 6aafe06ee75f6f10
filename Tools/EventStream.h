#pragma once

#include "Platform/Support/UniqueFd.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

namespace pavo::tools {

// The --json output of a child, read as it comes.
//
// Threads: reads on a thread of its own, which ends when the child closes its output. All functions may be
//          called from any thread.
class EventStream final {
public:
    struct Event {
        std::int64_t arrivalNs;  // CLOCK_MONOTONIC
        nlohmann::json content;

        bool is(const char* name) const { return content.value("event", std::string()) == name; }
    };

    explicit EventStream(UniqueFd readEnd);
    // Waits for the end of the output: end the child first.
    ~EventStream();
    EventStream(const EventStream&) = delete;
    EventStream& operator=(const EventStream&) = delete;

    std::vector<Event> events() const;
    // Whether an event of that name comes, or has come, at `sinceNs` or later.
    bool waitFor(const char* name, std::int64_t sinceNs, std::chrono::milliseconds deadline);

private:
    void read();

    UniqueFd readEnd_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Event> events_;
    bool isOver_ = false;
    std::thread thread_;
};

}  // namespace pavo::tools
