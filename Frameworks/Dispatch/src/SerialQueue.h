#pragma once

#include "Queue.h"

#include <mutex>

namespace dispatch::runtime {

class GlobalQueue;

// Runs one item at a time, in order of arrival.
//
// While it has something to do it is itself an item of the global queue of its level. Each turn there runs
// one item, so that more urgent queues get theirs in between and no queue starves another.
//
// Ownership: holds an internal reference to itself while it is an item of the global queue.
class SerialQueue final : public Queue, private Runnable {
public:
    SerialQueue(const char* label, GlobalQueue& target) : Queue(label, Lifetime::counted), target_(target) {}

    void enqueue(Runnable& item) override;
    // On the caller's thread when nobody uses the queue, else on a worker.
    void sync(void* context, dispatch_function_t function) override;
    void suspend() override;
    void resume() override;

private:
    bool run() override;
    Queue& finalizerQueue() const override;
    void abandon() override;

    bool hasTurnAhead() const { return !items_.isEmpty() && suspendCount_ == 0; }
    // Puts the queue on the global queue, if there is something to run and nobody does. With the lock held.
    void requestTurn();
    bool tryRunHere(void* context, dispatch_function_t function);

    GlobalQueue& target_;
    std::mutex mutex_;
    RunnableList items_;    // guarded by mutex_, like the rest
    bool isTaken_ = false;  // it waits on the global queue, or somebody runs an item
    int suspendCount_ = 0;
};

}  // namespace dispatch::runtime
