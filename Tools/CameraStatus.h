#pragma once

#include "Tools/Result.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace pavo::tools {

// How a running camera is, as it says itself. As JSON it is what `pavo status --json` writes; the manual
// describes the keys, which stay as they are.
struct CameraStatus {
    enum class PipeWire { daemon, embedded, waiting };
    enum class State {
        placeholder,  // clients see the placeholder picture
        live,         // clients see a producer's pictures
        idle,         // nobody watches
        waiting       // for PipeWire
    };
    struct Format {
        std::string pixel;
        int width = 0;
        int height = 0;
    };
    struct Process {
        std::int32_t pid = 0;
        std::string program;
        double connectedSeconds = 0;
    };
    struct Client {
        Process process;
        std::optional<std::string> applicationId;  // by which a portal knows it
    };
    struct Frames {
        std::uint64_t sent = 0;
        std::uint64_t drawn = 0;
        std::uint64_t replaced = 0;       // dropped, because the next one came first
        std::uint64_t withoutBuffer = 0;  // dropped, because clients held all buffers
        std::uint64_t unusable = 0;       // dropped, because they could not be read
        std::uint64_t unwatched = 0;      // dropped, because the last client went
        double rate = 0;                  // drawn in a second, lately

        std::uint64_t dropped() const { return replaced + withoutBuffer + unusable + unwatched; }
    };

    std::int32_t pid = 0;
    double uptimeSeconds = 0;
    std::string version;
    PipeWire pipeWire = PipeWire::waiting;
    std::string nodeName;
    std::string nodeLabel;
    std::optional<std::uint32_t> nodeId;
    State state = State::waiting;
    std::optional<Format> format;
    std::optional<Process> producer;
    std::vector<Client> clients;
    Frames frames;
};

const char* nameOf(CameraStatus::PipeWire pipeWire);
const char* nameOf(CameraStatus::State state);

nlohmann::json toJson(const CameraStatus& status);
// A problem where a key is missing or of another type; further keys are ignored.
Result<CameraStatus> statusFromJson(const nlohmann::json& json);

}  // namespace pavo::tools
