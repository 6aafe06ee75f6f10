#include "GlobalQueue.h"

#include "WorkerPool.h"

#include <array>

namespace dispatch::runtime {

GlobalQueue& GlobalQueue::withLevel(Level level)
{
    // In the order of the levels.
    static const std::array<GlobalQueue*, kLevelCount> all = {
        new GlobalQueue("com.apple.root.user-interactive-qos", Level::userInteractive),
        new GlobalQueue("com.apple.root.user-initiated-qos", Level::userInitiated),
        new GlobalQueue("com.apple.root.default-qos", Level::standard),
        new GlobalQueue("com.apple.root.utility-qos", Level::utility),
        new GlobalQueue("com.apple.root.background-qos", Level::background),
    };
    return *all[static_cast<std::size_t>(level)];
}

void GlobalQueue::enqueue(Runnable& item)
{
    WorkerPool::shared().enqueue(item, level_);
}

void GlobalQueue::sync(void* context, dispatch_function_t function)
{
    const QueueFrame frame(*this);
    function(context);
}

}  // namespace dispatch::runtime
