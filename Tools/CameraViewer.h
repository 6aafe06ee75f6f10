#pragma once

#include "Tools/CameraClient.h"
#include "Tools/FrameConversion.h"
#include "Tools/IntervalStatistics.h"
#include "Tools/Reporter.h"
#include "Tools/Result.h"
#include "Tools/StopSignal.h"

#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace pavo::tools {

struct ViewerOptions {
    std::string remoteName;
    std::string cameraName = "pavo-camera";
    std::optional<CameraFormat> format;  // none: whatever the camera prefers
    double waitSeconds = 5;              // for the camera to appear
    std::string snapshotPath;
    double afterSeconds = 0;  // from the first frame to the snapshot
    std::string picturePattern;
    double everySeconds = 0;
    std::string videoPath;  // "-" for standard output
    bool isY4M = false;     // else raw
    std::uint64_t frames = 0;
    double seconds = 0;
    bool tracesFrames = false;
};

// Watches the camera as the options say, and reports how it went.
//
// Threads: frames are noted, and copied where a picture or video of them is wanted, on PipeWire's data
//          thread; everything that takes longer runs on the thread that calls run.
class CameraViewer final {
public:
    CameraViewer(const ViewerOptions& options, Reporter& reporter, const StopSignal& stop);
    ~CameraViewer();

    // Until the options' end is reached or a signal comes. False: something failed and has been reported.
    bool run();

private:
    using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

    // What the data thread leaves for ours.
    struct Note {
        std::int64_t arrivalNs = 0;
        std::int64_t presentationTimeNs = 0;
        std::uint64_t sequence = 0;
        std::optional<std::uint32_t> counter;
        std::shared_ptr<const KeptFrame> frame;  // where somebody wants its pixels
        bool isFirst = false;
        bool isForSnapshot = false;
        bool isForSeries = false;
    };
    struct StateNote {
        CameraState state;
        std::string reason;
    };

    void arrived(const CameraFrame& frame);
    void decide(Note& note);
    void wake();
    bool openVideo();
    bool drain();
    bool handle(const Note& note);
    bool handle(const StateNote& note);
    bool writeVideo(const KeptFrame& frame);
    bool writePicture(const KeptFrame& frame, const std::string& path);
    bool isOver();
    void showStatus();
    void reportStatistics();

    const ViewerOptions options_;
    Reporter& reporter_;
    const StopSignal& stop_;
    UniqueFd wakeSignal_;
    File video_;
    std::unique_ptr<CameraClient> client_;

    std::mutex mutex_;  // of the members down to the next blank line
    IntervalStatistics statistics_;
    std::uint64_t framesMissing_ = 0;  // by the camera's own sequence numbers
    std::uint64_t lastSequence_ = 0;
    std::uint64_t notesDropped_ = 0;
    std::int64_t firstArrivalNs_ = 0;
    std::int64_t nextPictureNs_ = 0;
    bool hasSnapshot_ = false;
    std::deque<Note> notes_;
    std::deque<StateNote> states_;

    std::uint64_t framesWritten_ = 0;
    unsigned picturesWritten_ = 0;
    bool isSnapshotWritten_ = false;
    std::int64_t startNs_ = 0;
    std::int64_t nextStatusNs_ = 0;
};

}  // namespace pavo::tools
