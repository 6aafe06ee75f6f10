#pragma once

#include "Tests/Support/ChildProcess.h"

#include <cstdint>
#include <string>

namespace pavo::test {

// OBS Studio on a screen of its own that nobody sees, with one scene: the camera, through the camera portal,
// over the whole picture. It records from its start until it is gone. The recording is raw video in NUT, into
// a named pipe, so that each picture can be looked at while OBS runs.
//
// Its home and configuration are those of the PipeWireSession that runs.
class ObsStudio {
public:
    // False, with the reason, where OBS, its source of PipeWire cameras or the screen is not installed.
    static bool isAvailable(std::string* why);

    // `folder` is the session's. OBS scales the camera to the given size, which the recording has.
    ObsStudio(const std::string& folder, std::uint32_t width, std::uint32_t height);
    ~ObsStudio();
    ObsStudio(const ObsStudio&) = delete;
    ObsStudio& operator=(const ObsStudio&) = delete;

    // OBS begins to record once somebody reads it.
    const std::string& recording() const { return recording_; }
    // -1 where OBS or its screen has not started.
    pid_t pid() const { return process_.pid(); }
    bool isRunning() { return process_.isRunning(); }
    // Asks it to end, which ends the recording.
    void end();
    // What it wrote.
    std::string log() const;

private:
    const std::string folder_;
    const std::string recording_;
    ChildProcess screen_;
    ChildProcess process_;
};

}  // namespace pavo::test
