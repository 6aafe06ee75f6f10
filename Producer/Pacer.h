#pragma once

#include <cstdint>

namespace pavo::producer {

// Frames per second as a fraction.
struct Rate {
    std::uint32_t numerator;
    std::uint32_t denominator;

    double framesPerSecond() const { return static_cast<double>(numerator) / denominator; }
    bool isValid() const;
};

// When frames are due. Times are counted from a beginning, so no error adds up; whoever is late by more than
// a moment gets a new beginning, so nothing is caught up with in a burst.
class Pacer final {
public:
    static constexpr std::int64_t kLateNs = 100'000'000;

    explicit Pacer(const Rate& rate) : rate_(rate) {}

    // When the next frame is due, for somebody who asks at `nowNs`. The first one is due at once.
    std::int64_t next(std::int64_t nowNs);
    // The frame after the last one is due one period of the new rate later.
    void setRate(const Rate& rate);
    const Rate& rate() const { return rate_; }

private:
    std::int64_t dueNs() const;

    Rate rate_;
    std::int64_t beginNs_ = 0;
    std::int64_t index_ = 0;
    bool hasBegun_ = false;
};

}  // namespace pavo::producer
