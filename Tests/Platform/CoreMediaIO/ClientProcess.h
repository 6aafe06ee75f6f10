#pragma once

#include "Platform/Support/UniqueFd.h"
#include "Tests/Platform/CoreMediaIO/Pictures.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"

#include <cstdint>
#include <string>
#include <vector>

namespace cmio::test {

// What a client saw of one frame. Colours are Y, Cb, Cr.
struct SeenFrame {
    std::uint64_t sequence = 0;
    std::int64_t time = 0;
    std::string format;
    std::string size;
    unsigned stride = 0;
    int upperLeft[3] = {};
    int lowerRight[3] = {};
};

// A camera client in a process of its own.
class ClientProcess {
public:
    // Arguments as CameraTestClient takes them.
    explicit ClientProcess(std::vector<std::string> arguments = {});

    std::int32_t pid() const { return process_.pid(); }
    // Also tells when a frame is half written: only whole lines count.
    std::vector<SeenFrame> frames() const;
    std::string output() const;
    bool waitForFrames(std::size_t count) const;
    // Waits for frames that arrive from now on.
    bool waitForMoreFrames(std::size_t count) const { return waitForFrames(frames().size() + count); }
    void end(int signal) { process_.end(signal); }
    void signal(int number) const { process_.signal(number); }

private:
    pavo::test::TemporaryFolder folder_;
    pavo::test::ChildProcess process_;
};

// A client that holds each frame until it is told to let go of it.
class HoldingClient {
public:
    HoldingClient();

    ClientProcess& process() { return process_; }
    bool letGo() const;

private:
    pavo::test::TemporaryFolder folder_;
    const std::string gatePath_;
    const pavo::UniqueFd gate_;
    ClientProcess process_;
};

}  // namespace cmio::test
