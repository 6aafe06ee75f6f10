#pragma once

#include <atomic>

namespace cmio {

// When a driver hands its stream the next frame.
//
// A trigger asks the stream for a frame, and begins a cycle of the graph: what the stream has is passed on to
// all clients, and they are woken. Where a client has not finished with the last cycle, newer PipeWires first
// finish it in the client's place, and that passes on what the stream has, too. So a frame that was there at
// the beginning is passed on twice, the second time as nothing: while one client hangs, nobody would see a
// frame. One that comes only after the stream has said that it has none is passed on once, and in time.
//
// The stream says that by the event that also tells the end of a cycle, "trigger done".
//
// Threads: the events come on the data thread; reset from any thread while there are none.
class DriverCycle final {
public:
    // `isFinishedForClients`: by this PipeWire, as above. Else every frame is handed over at once.
    explicit DriverCycle(bool isFinishedForClients) : isFinishedForClients_(isFinishedForClients) {}

    // The stream asks for a frame: whether to hand it over now.
    bool process();
    // A trigger is done: whether to hand over now the frame that had to wait for this.
    bool triggerDone();
    // Either was answered with a frame.
    void handedOver() { state_ = State::running; }
    // The node has left the graph, and what was under way with it.
    void reset() { state_ = State::finished; }

private:
    enum class State {
        finished,
        starting,      // with nothing; the stream is about to say so
        startingLate,  // the same, and the last cycle is not finished
        recovering,    // still with nothing; the stream says so again when the last cycle is finished for it
        running,
    };

    const bool isFinishedForClients_;
    std::atomic<State> state_ = State::finished;
};

}  // namespace cmio
