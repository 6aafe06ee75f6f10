#pragma once

#include <mutex>
#include <utility>

namespace pavo {

// A value that several threads read and replace as a whole: every load sees one store's value, never a
// mixture. It makes single accesses safe and promises nothing about two in a row.
template <typename Value>
class Synchronized final {
public:
    Synchronized() = default;
    explicit Synchronized(Value value) : value_(std::move(value)) {}
    Synchronized(const Synchronized&) = delete;
    Synchronized& operator=(const Synchronized&) = delete;

    [[nodiscard]] Value load() const
    {
        const std::lock_guard lock(mutex_);
        return value_;
    }
    void store(Value value)
    {
        {
            const std::lock_guard lock(mutex_);
            std::swap(value_, value);
        }
        // The old value dies here, outside the lock: its destruction may run code that comes back for more.
    }

private:
    mutable std::mutex mutex_;
    Value value_{};
};

}  // namespace pavo
