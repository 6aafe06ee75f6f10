#pragma once

#include "Tools/Result.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

namespace pavo::tools {

// Asks the camera how it is, about once a second for as long as somebody wants to know, and has the last
// answer ready: asking may take a while.
//
// Threads: any; the source is asked on a thread of the object's own.
class StatusWatch final {
public:
    using Source = std::function<Result<nlohmann::json>()>;

    explicit StatusWatch(Source source);
    ~StatusWatch();
    StatusWatch(const StatusWatch&) = delete;
    StatusWatch& operator=(const StatusWatch&) = delete;

    // {"camera": what it says, or null, "problem": why it says nothing, or null}. Both are null before the
    // first answer.
    nlohmann::json latest();

private:
    void run();

    const Source source_;
    std::mutex mutex_;  // of the members down to the next blank line
    std::condition_variable changed_;
    nlohmann::json latest_;
    std::int64_t wantedNs_ = 0;  // when somebody asked last; 0: nobody has
    std::int64_t askedNs_ = 0;   // when the camera was asked last
    bool isOver_ = false;

    std::thread thread_;
};

}  // namespace pavo::tools
