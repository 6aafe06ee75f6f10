#include "Tools/LiveCamera.h"

#include "Tools/StopSignal.h"

#include <chrono>
#include <cstdlib>
#include <sys/eventfd.h>
#include <utility>

namespace pavo::tools {
namespace {

// A frame that is early by so much counts as one in time: they never come exactly when they are due.
constexpr std::int64_t kEarlyNs = 3'000'000;

// The PipeWire that the camera serves where no daemon runs.
constexpr const char* kOwnRemote = "pavo-0";

}  // namespace

LiveCamera::LiveCamera(Options options)
    : options_(std::move(options)),
      periodNs_(static_cast<std::int64_t>(1e9 / options_.mostFramesPerSecond)),
      wakeSignal_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{}

LiveCamera::~LiveCamera()
{
    disconnect();
}

std::optional<std::string> LiveCamera::connectTo(const std::string& remoteName)
{
    {
        const std::lock_guard lock(mutex_);
        isLost_ = false;
        isWanted_ = true;
        nextDueNs_ = 0;
    }
    CameraClient::Options wanted;
    wanted.remoteName = remoteName;
    wanted.cameraName = options_.cameraName;
    wanted.clientName = options_.clientName;
    wanted.deadline = std::chrono::seconds(1);
    wanted.onFrame = [this](const CameraFrame& frame) { arrived(frame); };
    wanted.onStateChanged = [this](CameraState state, std::string_view reason) {
        stateChanged(state, reason);
    };
    client_ = std::make_unique<CameraClient>(std::move(wanted));
    auto problem = client_->start();
    if (problem) client_.reset();
    return problem;
}

bool LiveCamera::connect()
{
    disconnect();
    auto problem = connectTo(options_.remoteName);
    // Where the user has named none, the camera may be found on the one of its own. What is wrong with the
    // usual one is the better news, though.
    if (problem && options_.remoteName.empty() && !std::getenv("PIPEWIRE_REMOTE") && !connectTo(kOwnRemote))
        problem.reset();
    const std::lock_guard lock(mutex_);
    status_.isConnected = !problem;
    // The camera may have gone again meanwhile, and that has its own reason.
    if (!isLost_) status_.problem = problem.value_or("");
    return !problem;
}

void LiveCamera::disconnect()
{
    client_.reset();
    const std::lock_guard lock(mutex_);
    status_.isConnected = false;
    isWanted_ = false;
    frame_.reset();
    windowStartNs_ = 0;
    status_.framesPerSecond = 0;
}

bool LiveCamera::isAlive() const
{
    const std::lock_guard lock(mutex_);
    return client_ && !isLost_;
}

std::shared_ptr<const KeptFrame> LiveCamera::takeFrame()
{
    eventfd_t wakes = 0;
    ::eventfd_read(wakeSignal_.get(), &wakes);
    const std::lock_guard lock(mutex_);
    isWanted_ = true;
    return std::exchange(frame_, nullptr);
}

LiveCamera::Status LiveCamera::status() const
{
    const std::lock_guard lock(mutex_);
    Status status = status_;
    if (monotonicNs() - lastArrivalNs_ > 2 * kSecondNs) status.framesPerSecond = 0;
    return status;
}

void LiveCamera::arrived(const CameraFrame& frame)
{
    if (!isWhole(frame)) return;
    {
        const std::lock_guard lock(mutex_);
        status_.width = frame.width;
        status_.height = frame.height;
        status_.format = frame.format;
        lastArrivalNs_ = frame.arrivalNs;
        if (windowStartNs_ == 0) {
            windowStartNs_ = frame.arrivalNs;
            windowFrames_ = 0;
        } else {
            ++windowFrames_;
        }
        if (const auto elapsed = frame.arrivalNs - windowStartNs_; elapsed >= kSecondNs) {
            status_.framesPerSecond = static_cast<double>(windowFrames_) * 1e9 / static_cast<double>(elapsed);
            windowStartNs_ = frame.arrivalNs;
            windowFrames_ = 0;
        }
        if (!isWanted_ || frame.arrivalNs < nextDueNs_ - kEarlyNs) return;
        const bool isBehind = frame.arrivalNs > nextDueNs_ + periodNs_;
        nextDueNs_ = (isBehind ? frame.arrivalNs : nextDueNs_) + periodNs_;
        isWanted_ = false;
        frame_ = std::make_shared<const KeptFrame>(frame);
    }
    wake();
}

void LiveCamera::stateChanged(CameraState state, std::string_view reason)
{
    if (state != CameraState::lost) return;
    {
        const std::lock_guard lock(mutex_);
        isLost_ = true;
        status_.problem = reason;
    }
    wake();
}

void LiveCamera::wake()
{
    ::eventfd_write(wakeSignal_.get(), 1);
}

}  // namespace pavo::tools
