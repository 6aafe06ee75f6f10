#pragma once

#include <functional>
#include <optional>
#include <utility>

namespace ns {

// What an observer asked for "new value only" is told. The value is absent where the observed property was
// set to nothing.
template <typename Value>
struct KeyValueChange {
    std::optional<Value> newValue;
};

// Keeps an observation alive; ends it when destroyed. Move only.
class KeyValueObservation final {
public:
    KeyValueObservation() = default;
    // `end` unregisters the observer. After it returns no call of the observer begins.
    explicit KeyValueObservation(std::function<void()> end) : end_(std::move(end)) {}
    KeyValueObservation(KeyValueObservation&& other) noexcept : end_(std::exchange(other.end_, nullptr)) {}
    KeyValueObservation& operator=(KeyValueObservation other) noexcept
    {
        std::swap(end_, other.end_);
        return *this;
    }
    ~KeyValueObservation()
    {
        if (end_) end_();
    }

private:
    std::function<void()> end_;
};

}  // namespace ns
