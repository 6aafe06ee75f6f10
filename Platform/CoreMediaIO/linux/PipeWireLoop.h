#pragma once

#include <chrono>
#include <functional>

struct pw_loop;
struct pw_thread_loop;
struct spa_source;

namespace cmio {

// The thread on which all PipeWire objects of this face live.
//
// Threads: any thread may take the lock; the loop's thread holds it while it runs callbacks. What PipeWire
//          offers is called with the lock held, so from one thread at a time.
class PipeWireLoop final {
public:
    class Lock {
    public:
        explicit Lock(PipeWireLoop& loop);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        pw_thread_loop* loop_;
    };

    // A context's property. Buffers that are locked into memory all take memory, also those never used.
    static constexpr const char* kLockMemory = "mem.allow-mlock";

    PipeWireLoop();
    // Ends the thread. Not on the loop's thread, and after everything that lives on the loop is gone.
    ~PipeWireLoop();
    PipeWireLoop(const PipeWireLoop&) = delete;
    PipeWireLoop& operator=(const PipeWireLoop&) = delete;

    pw_loop* get() const;

private:
    pw_thread_loop* loop_;
};

// Work that waits on the loop: it runs on the loop's thread, outside of every other callback, so it may
// destroy the objects whose callbacks asked for it.
//
// Threads: made and destroyed with the loop's lock held.
class LoopTask final {
public:
    LoopTask(PipeWireLoop& loop, std::function<void()> work);
    ~LoopTask();
    LoopTask(const LoopTask&) = delete;
    LoopTask& operator=(const LoopTask&) = delete;

    // Runs the work soon; once, however often it was asked for before it ran.
    void schedule() { scheduleAfter(std::chrono::milliseconds(0)); }
    void scheduleAfter(std::chrono::milliseconds delay);

private:
    pw_loop* loop_;
    std::function<void()> work_;
    spa_source* timer_;
};

}  // namespace cmio
