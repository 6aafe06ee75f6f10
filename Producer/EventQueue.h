#pragma once

#include "Producer/Flag.h"

#include <array>
#include <cstddef>
#include <optional>

namespace pavo::producer {

// The latest events that nobody has fetched yet. When there are too many the oldest give way, and the next
// one to be fetched says so.
//
// Threads: its owner's lock protects it; the flag may be waited for without.
class EventQueue final {
public:
    static constexpr std::size_t kCapacity = 256;

    void push(const pavo_event& event);
    std::optional<pavo_event> pop();
    // Raised while there are events. An owner that ends raises it for good.
    const Flag& flag() const { return flag_; }

private:
    Flag flag_;
    std::array<pavo_event, kCapacity> events_{};
    std::size_t first_ = 0;
    std::size_t count_ = 0;
    bool hasMissed_ = false;
};

}  // namespace pavo::producer
