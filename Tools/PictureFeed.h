#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace pavo::tools {

// Passes the newest picture to whoever watches, as the body of a multipart/x-mixed-replace answer. A viewer
// that is not done with one picture when others come goes on with the last of them: none is queued.
//
// Threads: all functions may be called from any thread. A viewer's hooks are called with the lock held.
class PictureFeed final {
public:
    static constexpr std::size_t kMostViewers = 8;
    static constexpr const char* kContentType = "multipart/x-mixed-replace; boundary=pavo";

    // How a viewer's connection is put to sleep until there is something to send, and woken.
    struct Hooks {
        std::function<void()> sleep;
        std::function<void()> wake;
        int socket = -1;  // shows whether the viewer is still there while it sleeps
    };
    class Viewer;
    enum class ReadStatus { some, none, over };
    struct ReadResult {
        ReadStatus status;
        std::size_t bytes = 0;
    };

    PictureFeed();
    ~PictureFeed();
    PictureFeed(const PictureFeed&) = delete;
    PictureFeed& operator=(const PictureFeed&) = delete;

    // Null where too many watch already, or the feed is over. Every viewer has to leave.
    Viewer* join(Hooks hooks);
    void leave(Viewer* viewer);
    // The next bytes for a viewer. None: it sleeps until there are some.
    ReadResult read(Viewer& viewer, std::span<char> into);

    void publish(const std::vector<std::uint8_t>& jpeg);
    // Ends the viewers who have gone away in their sleep.
    void endVanished();
    // Lets all viewers end; no new ones come.
    void end();

    std::size_t viewers() const;
    std::uint64_t published() const;
    // Waits for somebody to watch. False: the feed is over.
    bool waitForViewers();
    // Waits until nobody watches or time is up. False: nobody watches, or the feed is over.
    bool isWatchedFor(std::chrono::milliseconds time);

private:
    using Part = std::shared_ptr<const std::string>;

    mutable std::mutex mutex_;  // of all members
    std::condition_variable changed_;
    std::vector<std::unique_ptr<Viewer>> viewers_;
    Part newest_;
    std::uint64_t number_ = 0;  // of the newest picture
    bool isOver_ = false;
};

}  // namespace pavo::tools
