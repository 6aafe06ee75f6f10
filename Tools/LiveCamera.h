#pragma once

#include "Platform/Support/UniqueFd.h"
#include "Tools/CameraClient.h"
#include "Tools/FrameConversion.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace pavo::tools {

// Shows the camera as it is now: of its frames only the one that arrives after its user is ready for it is
// kept, so nothing waits in a queue and nothing is copied in vain.
//
// Threads: for one thread, but for `status`, which any thread may call.
class LiveCamera final {
public:
    struct Options {
        std::string remoteName;  // empty: PipeWire's default, else the camera's own
        std::string cameraName;
        std::string clientName;
        double mostFramesPerSecond = 30;
    };
    struct Status {
        bool isConnected = false;
        std::string problem;      // why there are no frames; empty where none is known
        std::uint32_t width = 0;  // 0 until a frame has come
        std::uint32_t height = 0;
        CameraFormat format = CameraFormat::yuy2;
        double framesPerSecond = 0;  // as they arrive, during the last second
    };

    explicit LiveCamera(Options options);
    ~LiveCamera();
    LiveCamera(const LiveCamera&) = delete;
    LiveCamera& operator=(const LiveCamera&) = delete;

    // Takes a second or two where the camera is not there. False: `status` says why.
    bool connect();
    void disconnect();
    // False once the camera or PipeWire has gone; then disconnect.
    bool isAlive() const;
    // Readable when a frame, or the camera's end, has come.
    int descriptor() const { return wakeSignal_.get(); }
    // The frame that has come, if one has, and asks for the next one.
    std::shared_ptr<const KeptFrame> takeFrame();

    Status status() const;

private:
    std::optional<std::string> connectTo(const std::string& remoteName);
    void arrived(const CameraFrame& frame);
    void stateChanged(CameraState state, std::string_view reason);
    void wake();

    const Options options_;
    const std::int64_t periodNs_;
    UniqueFd wakeSignal_;
    std::unique_ptr<CameraClient> client_;

    mutable std::mutex mutex_;  // of the members below
    Status status_;
    bool isLost_ = false;
    bool isWanted_ = false;
    std::int64_t nextDueNs_ = 0;
    std::int64_t lastArrivalNs_ = 0;
    std::int64_t windowStartNs_ = 0;  // of the second in which frames are counted
    unsigned windowFrames_ = 0;
    std::shared_ptr<const KeptFrame> frame_;
};

}  // namespace pavo::tools
