#pragma once

#include <algorithm>
#include <chrono>

namespace pavo::tools {

// How long to wait for answers: so long for each, and so long for all of them together.
class Patience final {
public:
    using Milliseconds = std::chrono::milliseconds;

    Patience(Milliseconds each, Milliseconds all) : each_(each), end_(Clock::now() + all) {}

    // For the next answer.
    Milliseconds left() const
    {
        const auto rest = std::chrono::duration_cast<Milliseconds>(end_ - Clock::now());
        return std::clamp(rest, Milliseconds(0), each_);
    }

private:
    using Clock = std::chrono::steady_clock;

    const Milliseconds each_;
    const Clock::time_point end_;
};

}  // namespace pavo::tools
