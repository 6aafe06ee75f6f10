#pragma once

#include "Tests/Platform/CoreMediaIO/Pictures.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cmio::test {

// What a kind of client asks of a camera, in PipeWire's words.
struct ClientHabits {
    std::string name;
    // Entries of its list of formats, each with one or several SPA_VIDEO_FORMAT_… to choose from.
    std::vector<std::vector<std::uint32_t>> formats;
    std::uint32_t width = 0;  // 0: any size
    std::uint32_t height = 0;
    std::uint32_t rate = 0;  // 0: any rate
    int buffers = 8;
    int minBuffers = 1;
    int maxBuffers = 32;
    std::uint32_t colorMatrix = 0;  // SPA_VIDEO_COLOR_MATRIX_… that the camera has to name; 0: any
    bool hasOwnStride = false;      // insists on rows without padding
    bool takesMemFd = true;         // and not only memory that is mapped already
    bool aimsById = false;          // and not by name
    bool isReconnecting = true;     // wants another camera where this one goes
    bool asksForTransform = false;
    bool givesBack = true;  // frames; or keeps each
};

// Chromium's and Firefox's: every format of libwebrtc's list, for the size that a page asks for.
ClientHabits browserHabits();
// OBS Studio's: an entry for each format, those of RGB first, and only memory that is mapped already.
ClientHabits obsHabits();
// What a pipewiresrc asks with videoconvert after it.
ClientHabits gstreamerHabits();
// Of pw-v4l2, for a program that set one format of a V4L2 camera's.
ClientHabits v4l2Habits();
// A client that takes one format and no other.
ClientHabits insistingOn(std::uint32_t format);

// What is agreed on of colours: SPA_VIDEO_COLOR_RANGE_…, SPA_VIDEO_COLOR_MATRIX_…, SPA_VIDEO_TRANSFER_… and
// SPA_VIDEO_COLOR_PRIMARIES_….
using Colorimetry = std::array<std::uint32_t, 4>;

// What was seen of a frame.
struct PickedFrame {
    std::uint32_t format = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t offset = 0;
    std::uint32_t size = 0;
    std::uint32_t room = 0;
    int stride = 0;
    bool hasHeader = false;
    Colorimetry colorimetry{};
    std::uint64_t sequence = 0;
    std::int64_t time = 0;
    // Of the first pixel; none in a format that no camera of ours has.
    std::optional<YCbCr> firstColor;
};

// A camera client of a certain kind, in this process.
//
// Threads: the test's.
class PickyClient {
public:
    // Asks for the camera of that name; `remote` as for PIPEWIRE_REMOTE.
    explicit PickyClient(ClientHabits habits, const std::string& remote = {},
                         const std::string& camera = "pavo-camera");
    ~PickyClient();
    PickyClient(const PickyClient&) = delete;
    PickyClient& operator=(const PickyClient&) = delete;

    std::size_t frameCount() const;
    std::size_t bufferCount() const;
    // In how many of them frames came since this was last asked.
    std::size_t takeUsedBufferCount();
    std::optional<PickedFrame> lastFrame() const;
    // Why the server refused it; empty while it has not.
    std::string refusal() const;
    // Until the server or its session manager ends it.
    bool isConnected() const;
    bool isStreaming() const;
    // Frames that come from now on.
    bool waitForFrames(std::size_t count, std::chrono::seconds deadline = std::chrono::seconds(30)) const;
    // Pauses, or goes on.
    void setActive(bool isActive);

private:
    struct Impl;

    std::unique_ptr<Impl> impl_;
};

}  // namespace cmio::test
