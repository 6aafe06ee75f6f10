#include <dispatch/once.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace {

constexpr dispatch_once_t kRunning = 1;
constexpr dispatch_once_t kDone = ~static_cast<dispatch_once_t>(0);

// Shared by all predicates: calls are rare, and each is made once.
struct Gate {
    std::mutex mutex;
    std::condition_variable isDoneChanged;
};
Gate& gate()
{
    static auto* const shared = new Gate;
    return *shared;
}

}  // namespace

void dispatch_once_f(dispatch_once_t* predicate, void* context, dispatch_function_t function)
{
    const std::atomic_ref state(*predicate);
    if (state.load(std::memory_order_acquire) == kDone) return;
    std::unique_lock lock(gate().mutex);
    gate().isDoneChanged.wait(lock, [&state] { return state != kRunning; });
    if (state == kDone) return;
    state = kRunning;
    lock.unlock();
    function(context);
    lock.lock();
    state.store(kDone, std::memory_order_release);
    gate().isDoneChanged.notify_all();
}
