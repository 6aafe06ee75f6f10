#include "Tools/IntervalStatistics.h"

#include <algorithm>

namespace pavo::tools {
namespace {

constexpr std::size_t kIntervalsKept = 36'000;  // ten minutes at 60 Hz

double milliseconds(std::int64_t ns)
{
    return static_cast<double>(ns) / 1e6;
}

}  // namespace

void IntervalStatistics::add(std::int64_t arrivalNs)
{
    if (frames_++ == 0) {
        first_ = last_ = arrivalNs;
        return;
    }
    const std::int64_t interval = arrivalNs - last_;
    last_ = arrivalNs;
    longest_ = std::max(longest_, interval);
    if (intervals_.size() < kIntervalsKept) {
        intervals_.push_back(interval);
    } else {
        intervals_[oldest_] = interval;
        oldest_ = (oldest_ + 1) % kIntervalsKept;
    }
}

IntervalStatistics::Summary IntervalStatistics::summary() const
{
    Summary summary;
    summary.frames = frames_;
    if (intervals_.empty()) return summary;
    if (last_ > first_)
        summary.framesPerSecond =
            static_cast<double>(frames_ - 1) * 1e9 / static_cast<double>(last_ - first_);
    auto sorted = intervals_;
    std::ranges::sort(sorted);
    summary.longestMs = milliseconds(longest_);
    summary.medianMs = milliseconds(sorted[(sorted.size() - 1) / 2]);
    // The smallest interval that at least 99 of 100 do not exceed.
    summary.percentile99Ms = milliseconds(sorted[(sorted.size() * 99 + 99) / 100 - 1]);
    return summary;
}

}  // namespace pavo::tools
