#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace cmio {

// What has become of a node's frames since it was made. Each frame that was sent ends as one of the others,
// but for the one that is on its way.
struct FrameCounts {
    std::uint64_t sent = 0;  // while frames were wanted
    std::uint64_t drawn = 0;
    std::uint64_t replaced = 0;       // by the next one, before it was drawn
    std::uint64_t withoutBuffer = 0;  // clients held all of the node's memory
    std::uint64_t unusable = 0;       // could not be read, or did not fit
    std::uint64_t unwatched = 0;      // the last client went before it was drawn
    double framesPerSecond = 0;       // of those drawn in the last two seconds
    bool isForeign = false;           // the last one drawn lay in another process's surface

    std::uint64_t dropped() const { return replaced + withoutBuffer + unusable + unwatched; }
};

// Counts the frames of one node. What is counted is added up only where somebody asks.
//
// Threads: any.
class FrameTally final {
public:
    using Clock = std::chrono::steady_clock;
    enum class Drop { replaced, withoutBuffer, unusable, unwatched };

    void sent();
    void drawn(bool isForeign, Clock::time_point now = Clock::now());
    void dropped(Drop reason);

    FrameCounts counts(Clock::time_point now = Clock::now()) const;

private:
    double framesPerSecond(Clock::time_point now) const;

    mutable std::mutex mutex_;
    FrameCounts counts_;
    // When the latest frames were drawn, in a ring: enough for the time looked at, at any usual rate.
    std::array<Clock::time_point, 256> times_;
};

}  // namespace cmio
