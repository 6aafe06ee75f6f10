#pragma once

#include <dispatch/dispatch.h>

#include <functional>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

// Dispatch from C++: closures instead of function and context, and handles that release. Header only, over
// the plain C interface, so it serves every platform that has one.
namespace dispatch {

// Owns one reference to a dispatch queue.
class Queue final {
public:
    Queue() = default;
    explicit Queue(dispatch_queue_t adopted) : queue_(adopted) {}
    Queue(const Queue& other) : queue_(other.queue_)
    {
        if (queue_) dispatch_retain(queue_);
    }
    Queue(Queue&& other) noexcept : queue_(std::exchange(other.queue_, nullptr)) {}
    Queue& operator=(Queue other) noexcept
    {
        std::swap(queue_, other.queue_);
        return *this;
    }
    ~Queue()
    {
        if (queue_) dispatch_release(queue_);
    }

    // A serial queue; `label` is a literal. An unspecified quality of service makes a queue without that
    // attribute.
    static Queue serial(const char* label, qos_class_t qualityOfService = QOS_CLASS_UNSPECIFIED)
    {
        dispatch_queue_attr_t attributes = DISPATCH_QUEUE_SERIAL;
        if (qualityOfService != QOS_CLASS_UNSPECIFIED)
            attributes = dispatch_queue_attr_make_with_qos_class(attributes, qualityOfService, 0);
        return Queue(dispatch_queue_create(label, attributes));
    }
    static Queue retain(dispatch_queue_t queue)
    {
        if (queue) dispatch_retain(queue);
        return Queue(queue);
    }

    dispatch_queue_t get() const { return queue_; }

private:
    dispatch_queue_t queue_ = nullptr;
};

namespace detail {

template <typename Work>
void runOnce(void* context)
{
    const std::unique_ptr<Work> work(static_cast<Work*>(context));
    (*work)();
}

}  // namespace detail

// Runs `work` on the queue later; the closure is destroyed there when it is done.
template <typename Work>
void async(dispatch_queue_t queue, Work&& work)
{
    using Stored = std::decay_t<Work>;
    dispatch_async_f(queue, new Stored(std::forward<Work>(work)), detail::runOnce<Stored>);
}

// Runs `work` on the queue at `when`, or soon after.
template <typename Work>
void after(dispatch_time_t when, dispatch_queue_t queue, Work&& work)
{
    using Stored = std::decay_t<Work>;
    dispatch_after_f(when, queue, new Stored(std::forward<Work>(work)), detail::runOnce<Stored>);
}

// Runs `work` on the queue and waits for it. Never from code that already runs on that queue: deadlock.
template <typename Work>
void sync(dispatch_queue_t queue, Work&& work)
{
    using Plain = std::remove_reference_t<Work>;
    dispatch_sync_f(queue, const_cast<void*>(static_cast<const void*>(std::addressof(work))),
                    [](void* context) { (*static_cast<Plain*>(context))(); });
}

// Owns a strict timer source, which starts suspended.
//
// The platform ends a process that lets go of a suspended source, and one that resumes a source once too
// often. The handle therefore counts: it resumes a suspended source exactly once, after it is cancelled, just
// before it gives it up.
//
// Threads: resume, suspend and cancel from one context at a time; the last one lets go of it.
class TimerSource final {
public:
    // `queue` is where the event handler runs.
    explicit TimerSource(dispatch_queue_t queue)
        : source_(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, DISPATCH_TIMER_STRICT, queue)),
          handler_(new Handler)
    {
        dispatch_set_context(source_, handler_);
        // The source may outlive this handle by a fire that is under way, so the source frees the handler.
        dispatch_set_finalizer_f(source_, [](void* context) { delete static_cast<Handler*>(context); });
    }
    TimerSource(const TimerSource&) = delete;
    TimerSource& operator=(const TimerSource&) = delete;
    ~TimerSource()
    {
        if (!isCancelled_) dispatch_source_cancel(source_);
        if (isSuspended_) dispatch_resume(source_);
        dispatch_release(source_);
    }

    // First fire at `start`, then every `intervalNanoseconds`, without leeway.
    void schedule(dispatch_time_t start, std::uint64_t intervalNanoseconds)
    {
        dispatch_source_set_timer(source_, start, intervalNanoseconds, 0);
    }
    // Replaces the handler; an empty one does nothing. A fire under way keeps the handler that it started
    // with.
    void setEventHandler(std::function<void()> work)
    {
        const dispatch_function_t fire = work ? runHandler : doNothing;
        handler_->set(std::move(work));
        dispatch_source_set_event_handler_f(source_, fire);
    }
    void resume()
    {
        isSuspended_ = false;
        dispatch_resume(source_);
    }
    void suspend()
    {
        isSuspended_ = true;
        dispatch_suspend(source_);
    }
    void cancel()
    {
        isCancelled_ = true;
        dispatch_source_cancel(source_);
    }

private:
    // The current event handler, shared with the thread that fires.
    class Handler {
    public:
        std::shared_ptr<const std::function<void()>> get()
        {
            const std::lock_guard lock(mutex_);
            return work_;
        }
        void set(std::function<void()> work)
        {
            auto next = work ? std::make_shared<const std::function<void()>>(std::move(work)) : nullptr;
            const std::lock_guard lock(mutex_);
            work_.swap(next);
        }

    private:
        std::mutex mutex_;
        std::shared_ptr<const std::function<void()>> work_;
    };

    static void runHandler(void* context)
    {
        if (const auto work = static_cast<Handler*>(context)->get()) (*work)();
    }
    static void doNothing(void*) {}

    dispatch_source_t source_;
    Handler* handler_;  // owned by the source
    bool isSuspended_ = true;
    bool isCancelled_ = false;
};

}  // namespace dispatch
