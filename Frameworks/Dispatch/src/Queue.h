#pragma once

#include "Object.h"
#include "Runnable.h"

#include <dispatch/queue.h>

#include <string>

namespace dispatch::runtime {

// What work is put on.
class Queue : public Object {
public:
    const char* label() const { return label_.c_str(); }

    // Has the item run in its turn.
    virtual void enqueue(Runnable& item) = 0;
    // Runs the function in its turn and returns when that is done.
    virtual void sync(void* context, dispatch_function_t function) = 0;

    void async(void* context, dispatch_function_t function) { enqueue(*new Call(context, function)); }

protected:
    Queue(const char* label, Lifetime lifetime) : Object(lifetime), label_(label ? label : "") {}

private:
    const std::string label_;
};

// Says that this thread runs on a queue, while it lives. Frames are a chain, innermost first: an item of a
// serial queue also runs on the global queue behind it, and on the queues of the thread that waits for it.
class QueueFrame final {
public:
    explicit QueueFrame(const Queue& queue) : QueueFrame(queue, current()) {}
    // `outer` belongs to a thread that waits until this frame is gone.
    QueueFrame(const Queue& queue, const QueueFrame* outer);
    ~QueueFrame();
    QueueFrame(const QueueFrame&) = delete;
    QueueFrame& operator=(const QueueFrame&) = delete;

    // The innermost frame of this thread; null where it runs on no queue.
    static const QueueFrame* current();
    static bool contains(const Queue& queue);

    const Queue& queue() const { return queue_; }

private:
    const Queue& queue_;
    const QueueFrame* const outer_;
    const QueueFrame* const restored_;
};

}  // namespace dispatch::runtime
