#include "Producer/EventQueue.h"

namespace pavo::producer {

void EventQueue::push(const pavo_event& event)
{
    if (count_ == kCapacity) {
        first_ = (first_ + 1) % kCapacity;
        --count_;
        hasMissed_ = true;
    }
    events_[(first_ + count_) % kCapacity] = event;
    if (++count_ == 1) flag_.raise();
}

std::optional<pavo_event> EventQueue::pop()
{
    if (count_ == 0) return std::nullopt;
    if (hasMissed_) {
        hasMissed_ = false;
        return pavo_event{PAVO_EVENT_MISSED, 0};
    }
    const pavo_event event = events_[first_];
    first_ = (first_ + 1) % kCapacity;
    if (--count_ == 0) flag_.lower();
    return event;
}

}  // namespace pavo::producer
