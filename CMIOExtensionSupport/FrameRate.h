#pragma once

#include <cstdint>

namespace pavo {

// The time scale in which times of a stream of `framesPerSecond` are counted: one hundred ticks for each
// whole frame of a second. A rate that is not finite, or whose scale does not fit, is a programming error.
std::int32_t timescaleForFrameRate(double framesPerSecond);

}  // namespace pavo
