#include "Time.h"

using dispatch::runtime::kLatestTime;

namespace {

// Not 0, which means now: a time this long ago is simply over.
constexpr std::uint64_t kEarliest = 1;

}  // namespace

dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta)
{
    if (when > kLatestTime) return DISPATCH_TIME_FOREVER;
    const std::uint64_t base = when == DISPATCH_TIME_NOW ? dispatch::runtime::now() : when;
    if (delta >= 0) {
        const auto ahead = static_cast<std::uint64_t>(delta);
        return ahead > kLatestTime - base ? DISPATCH_TIME_FOREVER : base + ahead;
    }
    const std::uint64_t back = 0 - static_cast<std::uint64_t>(delta);
    return back >= base ? kEarliest : base - back;
}
