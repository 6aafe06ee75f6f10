#include "Tools/PictureFeed.h"

#include <algorithm>
#include <cstring>
#include <poll.h>
#include <utility>

namespace pavo::tools {
namespace {

constexpr std::string_view kBoundary = "--pavo\r\n";

// Whether the other side has closed its half of the connection, or all of it.
bool hasHungUp(int socket)
{
    pollfd state{socket, POLLRDHUP, 0};
    return ::poll(&state, 1, 0) > 0 && (state.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

}  // namespace

class PictureFeed::Viewer final {
public:
    explicit Viewer(Hooks wanted) : hooks(std::move(wanted)) {}

    void wake()
    {
        if (std::exchange(isAsleep, false)) hooks.wake();
    }

    const Hooks hooks;
    Part part = std::make_shared<const std::string>(kBoundary);  // what is being sent
    std::size_t sent = 0;                                        // of its bytes
    std::uint64_t number = 0;                                    // of its picture
    bool isAsleep = false;
    bool hasVanished = false;
};

PictureFeed::PictureFeed() = default;
PictureFeed::~PictureFeed() = default;

PictureFeed::Viewer* PictureFeed::join(Hooks hooks)
{
    const std::lock_guard lock(mutex_);
    if (isOver_ || viewers_.size() >= kMostViewers) return nullptr;
    viewers_.push_back(std::make_unique<Viewer>(std::move(hooks)));
    changed_.notify_all();
    return viewers_.back().get();
}

void PictureFeed::leave(Viewer* viewer)
{
    const std::lock_guard lock(mutex_);
    std::erase_if(viewers_, [viewer](const auto& each) { return each.get() == viewer; });
    // Who comes later is not to see what nobody saw since.
    if (viewers_.empty()) newest_.reset();
    changed_.notify_all();
}

PictureFeed::ReadResult PictureFeed::read(Viewer& viewer, std::span<char> into)
{
    const std::lock_guard lock(mutex_);
    if (isOver_ || viewer.hasVanished) return {ReadStatus::over};
    if (viewer.sent == viewer.part->size()) {
        if (!newest_ || viewer.number == number_) {
            viewer.isAsleep = true;
            viewer.hooks.sleep();
            return {ReadStatus::none};
        }
        viewer.part = newest_;
        viewer.number = number_;
        viewer.sent = 0;
    }
    const std::size_t count = std::min(into.size(), viewer.part->size() - viewer.sent);
    std::memcpy(into.data(), viewer.part->data() + viewer.sent, count);
    viewer.sent += count;
    return {ReadStatus::some, count};
}

void PictureFeed::publish(const std::vector<std::uint8_t>& jpeg)
{
    // Browsers show a picture when the boundary behind it has come, so it comes with the picture.
    std::string part =
        "Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(jpeg.size()) + "\r\n\r\n";
    part.append(jpeg.begin(), jpeg.end());
    part.append("\r\n").append(kBoundary);
    const std::lock_guard lock(mutex_);
    ++number_;
    if (viewers_.empty()) return;
    newest_ = std::make_shared<const std::string>(std::move(part));
    for (const auto& viewer : viewers_)
        viewer->wake();
}

void PictureFeed::endVanished()
{
    const std::lock_guard lock(mutex_);
    for (const auto& viewer : viewers_) {
        if (!viewer->isAsleep || !hasHungUp(viewer->hooks.socket)) continue;
        viewer->hasVanished = true;
        viewer->wake();
    }
}

void PictureFeed::end()
{
    const std::lock_guard lock(mutex_);
    isOver_ = true;
    for (const auto& viewer : viewers_)
        viewer->wake();
    changed_.notify_all();
}

std::size_t PictureFeed::viewers() const
{
    const std::lock_guard lock(mutex_);
    return viewers_.size();
}

std::uint64_t PictureFeed::published() const
{
    const std::lock_guard lock(mutex_);
    return number_;
}

bool PictureFeed::waitForViewers()
{
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return isOver_ || !viewers_.empty(); });
    return !isOver_;
}

bool PictureFeed::isWatchedFor(std::chrono::milliseconds time)
{
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, time, [this] { return isOver_ || viewers_.empty(); });
    return !isOver_ && !viewers_.empty();
}

}  // namespace pavo::tools
