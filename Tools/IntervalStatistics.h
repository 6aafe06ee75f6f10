#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pavo::tools {

// How evenly frames came: their number, rate, and the times between them.
class IntervalStatistics final {
public:
    struct Summary {
        std::size_t frames = 0;
        double framesPerSecond = 0;  // between the first and the last frame; 0 for fewer than two
        double longestMs = 0;
        double medianMs = 0;
        double percentile99Ms = 0;
    };

    void add(std::int64_t arrivalNs);
    Summary summary() const;
    std::size_t frames() const { return frames_; }

private:
    std::size_t frames_ = 0;
    std::int64_t first_ = 0;
    std::int64_t last_ = 0;
    // Of the latest intervals, so that a viewer that runs for days does not grow.
    std::vector<std::int64_t> intervals_;
    std::size_t oldest_ = 0;
    std::int64_t longest_ = 0;
};

}  // namespace pavo::tools
