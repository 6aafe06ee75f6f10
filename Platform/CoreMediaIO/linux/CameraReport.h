#pragma once

#include "Platform/CoreMediaIO/linux/FrameTally.h"
#include "Platform/CoreMediaIO/linux/VideoLayout.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// How the cameras of this process are: put together when it is asked for, and only then.
namespace cmio {

enum class PipeWireState {
    waiting,  // no PipeWire answers
    daemon,   // the session's
    embedded  // the process serves its clients itself
};

struct ClientReport {
    std::int32_t process = 0;
    std::string program;            // empty where nobody tells
    std::string portalApplication;  // empty for a client that did not come through a portal
    std::chrono::steady_clock::time_point since;
    bool isProcessKnown = false;  // to the kernel, so that /proc tells of it
};

struct CameraReport {
    std::string nodeName;
    std::string label;
    std::optional<std::uint32_t> nodeId;  // while it is published
    bool isStreaming = false;
    std::optional<VideoLayout> layout;  // that clients have agreed to
    FrameCounts frames;
    std::vector<ClientReport> clients;  // those linked to it, by process
};

struct ServiceReport {
    PipeWireState pipeWire = PipeWireState::waiting;
    std::vector<CameraReport> cameras;
};

// None where this process has no camera. From any thread but the loop's.
std::optional<ServiceReport> reportCameras();

}  // namespace cmio
