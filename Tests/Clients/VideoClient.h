#pragma once

#include "Tests/Clients/ClientPicture.h"
#include "Tools/ChildProcess.h"
#include "Tools/PictureStream.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace pavo::test {

// A program that plays the camera, and writes what it sees to its standard output: RGB pictures of the size
// below, without padding.
//
// Threads: for one thread, the test's own.
class VideoClient {
public:
    static constexpr std::uint32_t kWidth = 480, kHeight = 270;

    // `arguments` begin with the program. Its errors go to `logPath`.
    VideoClient(std::vector<std::string> arguments, std::string logPath);
    ~VideoClient();
    VideoClient(const VideoClient&) = delete;
    VideoClient& operator=(const VideoClient&) = delete;

    bool isRunning();
    // Asks it to end; its exit status, or none when it has to be killed.
    std::optional<int> end();
    std::size_t frameCount() const;
    // Pictures a second since it had seen `first` of them.
    double rateSince(std::size_t first) const;
    // Waits for a picture that `isWanted`, from now on. Empty when there is none in time.
    ClientPicture waitFor(const std::function<bool(const ClientPicture&)>& isWanted);
    bool waitForFrames(std::size_t more);
    // What it wrote besides pictures.
    std::string log() const;

private:
    const std::string logPath_;
    std::optional<tools::ChildProcess> process_;
    std::unique_ptr<tools::PictureStream> pictures_;
};

}  // namespace pavo::test
