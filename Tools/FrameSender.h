#pragma once

#include "Tools/CameraLink.h"
#include "Tools/FrameSource.h"
#include "Tools/Reporter.h"
#include "Tools/StopSignal.h"
#include "Tools/SurfacePool.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>

namespace pavo::tools {

// Sends a source's frames to the camera at their pace, from the moment the camera is there.
//
// Frames are due at absolute times, so a late one does not delay those after it. A source that falls behind
// by more than a moment sets a new beginning: it is not caught up with in a burst. While the camera does not
// want frames, they are left out at the same pace.
//
// Ownership: borrows all that it is made with.
// Threads:   run blocks the calling thread; what the camera says is reported from the link's queue.
class FrameSender final {
public:
    FrameSender(FrameSource& source, const FrameRate& rate, Reporter& reporter, const StopSignal& stop);
    ~FrameSender();

    // Until `frames` have been taken from the source (0: no limit), it ends, or a signal comes. False: the
    // source failed, and that has been reported.
    bool run(std::uint64_t frames);

private:
    void heard(const LinkEvent& event);
    void forgetWatchers();
    bool waitForCamera();
    FrameOutcome leaveOut(std::uint64_t& count);
    FrameOutcome step();
    void showStatus();
    void reportStatistics();

    FrameSource& source_;
    const FrameRate rate_;
    Reporter& reporter_;
    const StopSignal& stop_;
    const std::shared_ptr<CameraLink> link_;
    UniqueFd connectedSignal_;  // readable once the camera has been there

    std::optional<SurfacePool> pool_;
    std::uint64_t poolGeneration_ = 0;
    // The latest frames stay in use here until the camera surely has them: a surface that is under way is in
    // use by nobody else, and would be drawn over.
    std::deque<cf::Ref<CVPixelBufferRef>> underWay_;

    // The camera may tell of a process twice: as one that comes, and as one that is there.
    std::set<std::int32_t> watchers_;  // used on the link's queue only
    std::atomic<std::size_t> watcherCount_ = 0;
    std::uint64_t sent_ = 0;
    std::uint64_t leftOutUnwatched_ = 0;
    std::uint64_t leftOutRingFull_ = 0;
    std::int64_t startNs_ = 0;
    std::int64_t nextStatusNs_ = 0;
};

}  // namespace pavo::tools
