#pragma once

#include "Level.h"
#include "Queue.h"

namespace dispatch::runtime {

// The concurrent queue of one level. There is one for each, made at first use and never destroyed.
class GlobalQueue final : public Queue {
public:
    static GlobalQueue& withLevel(Level level);

    void enqueue(Runnable& item) override;
    // A concurrent queue has a place for everybody at once, so this is a plain call.
    void sync(void* context, dispatch_function_t function) override;

private:
    GlobalQueue(const char* label, Level level) : Queue(label, Lifetime::immortal), level_(level) {}

    const Level level_;
};

}  // namespace dispatch::runtime
