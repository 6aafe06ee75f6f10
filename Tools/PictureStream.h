#pragma once

#include "Platform/Support/UniqueFd.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace pavo::tools {

// RGB pictures of one size that a child writes one after the other: when each came, and the latest.
//
// Threads: reads on a thread of its own, which ends when the child closes its output. All functions may be
//          called from any thread.
class PictureStream final {
public:
    PictureStream(UniqueFd readEnd, std::uint32_t width, std::uint32_t height);
    // Waits for the end of the output: end the child first.
    ~PictureStream();
    PictureStream(const PictureStream&) = delete;
    PictureStream& operator=(const PictureStream&) = delete;

    std::vector<std::int64_t> arrivalsNs() const;
    std::vector<std::uint8_t> latest() const;
    bool waitForFirst(std::chrono::milliseconds deadline);

private:
    void read();

    UniqueFd readEnd_;
    const std::size_t pictureBytes_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::int64_t> arrivalsNs_;
    std::vector<std::uint8_t> latest_;
    std::thread thread_;
};

}  // namespace pavo::tools
