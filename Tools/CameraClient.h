#pragma once

#include "Tools/Matrix.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace pavo::tools {

// Packings that a camera client can ask for.
enum class CameraFormat { yuy2, uyvy, nv12, bgrx };

std::string_view nameOf(CameraFormat format);

// One frame as it arrived. The bytes are the camera's own memory: borrowed until the callback returns.
struct CameraFrame {
    std::span<const std::uint8_t> bytes;
    CameraFormat format;
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t strideBytes;        // of the first plane
    Matrix matrix;                    // of luma and chroma; BT.601's where the camera does not say
    std::int64_t presentationTimeNs;  // of the frame's header; -1 where there is none
    std::uint64_t sequence;           // of the frame's header; 0 where there is none
    std::int64_t arrivalNs;           // CLOCK_MONOTONIC
};

enum class CameraState {
    paused,  // linked or not, but no frame flows
    streaming,
    lost  // the end: the camera or PipeWire has gone
};

// Watches a camera through PipeWire, as any application would.
//
// Threads: frames arrive on PipeWire's data thread, states on its loop thread; both callbacks must be short
//          and must not call back into the client. start and stop are for the owner's thread.
// Errors:  start says in a sentence what is missing, be it a format that the camera offers. A stream that
//          pauses goes on when it is resumed; a lost one is not reconnected.
class CameraClient final {
public:
    struct Options {
        std::string remoteName;                  // PipeWire's default where it is empty
        std::string cameraName = "pavo-camera";  // node.name
        std::string clientName = "pavo-view";
        // Most wanted first.
        std::vector<CameraFormat> formats = {CameraFormat::yuy2, CameraFormat::uyvy, CameraFormat::nv12,
                                             CameraFormat::bgrx};
        std::chrono::milliseconds deadline = std::chrono::seconds(5);  // for the camera to appear
        std::function<void(const CameraFrame&)> onFrame;
        std::function<void(CameraState, std::string_view reason)> onStateChanged;
    };

    explicit CameraClient(Options options);
    ~CameraClient();
    CameraClient(const CameraClient&) = delete;
    CameraClient& operator=(const CameraClient&) = delete;

    // Connects and asks for frames. None: all is well; else why not.
    [[nodiscard]] std::optional<std::string> start();
    // No callback runs after it has returned.
    void stop();

private:
    struct Impl;

    std::unique_ptr<Impl> impl_;
};

}  // namespace pavo::tools
