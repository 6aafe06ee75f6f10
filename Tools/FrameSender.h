#pragma once

#include "Platform/Support/UniqueFd.h"
#include "Tools/FrameSource.h"
#include "Tools/Reporter.h"
#include "Tools/StopSignal.h"

#include <pavo/producer.hpp>

#include <cstdint>

namespace pavo::tools {

// Sends a source's frames to the camera at their pace, from the moment the camera is there.
//
// Frames are due at absolute times, so a late one does not delay those after it. A source that falls behind
// by more than a moment sets a new beginning: it is not caught up with in a burst. While the camera does not
// want frames, they are left out at the same pace.
//
// Ownership: borrows all that it is made with.
// Threads:   run blocks the calling thread; what the camera says is reported from a thread of its own.
class FrameSender final {
public:
    FrameSender(FrameSource& source, const FrameRate& rate, Reporter& reporter, const StopSignal& stop);

    // Until `frames` have been taken from the source (0: no limit), it ends, or a signal comes. False: the
    // source failed, and that has been reported.
    bool run(std::uint64_t frames);

private:
    void listen(const Producer& producer);
    void report(const pavo_event& event);
    bool waitForCamera();
    bool sendAll(const Producer& producer, std::uint64_t frames);
    FrameOutcome leaveOut(std::uint64_t& count);
    FrameOutcome step(const Producer& producer);
    void showStatus(const Producer& producer);
    void reportStatistics(std::uint64_t sent);

    FrameSource& source_;
    const FrameRate rate_;
    Reporter& reporter_;
    const StopSignal& stop_;
    UniqueFd connectedSignal_;  // readable once the camera has been there
    std::uint64_t leftOutUnwatched_ = 0;
    std::uint64_t leftOutRingFull_ = 0;
    std::int64_t startNs_ = 0;
    std::int64_t nextStatusNs_ = 0;
};

}  // namespace pavo::tools
