#include "Tools/FrameSender.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <utility>

namespace pavo::tools {
namespace {

constexpr std::int32_t kTimeScale = 1'000'000'000;
constexpr std::size_t kFramesUnderWay = 3;
constexpr std::int64_t kLateNs = 100'000'000;
constexpr std::int64_t kStatusEveryNs = 500'000'000;

CMSampleTimingInfo timingNow(const FrameRate& rate)
{
    CMSampleTimingInfo timing = kCMTimingInfoInvalid;
    timing.duration = CMTimeMakeWithSeconds(1 / rate.framesPerSecond(), kTimeScale);
    timing.presentationTimeStamp = CMClockGetTime(CMClockGetHostTimeClock());
    return timing;
}

std::string describe(const VideoFormat& format, const FrameRate& rate)
{
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), "%ux%u %.*s at %.6g frames per second", format.width,
                  format.height, static_cast<int>(nameOf(format.packing).size()),
                  nameOf(format.packing).data(), rate.framesPerSecond());
    return text.data();
}

}  // namespace

FrameSender::FrameSender(FrameSource& source, const FrameRate& rate, Reporter& reporter,
                         const StopSignal& stop)
    : source_(source),
      rate_(rate),
      reporter_(reporter),
      stop_(stop),
      link_(CameraLink::create(rate.framesPerSecond(), [this](const LinkEvent& event) { heard(event); })),
      connectedSignal_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{}

FrameSender::~FrameSender()
{
    link_->stop();
}

void FrameSender::heard(const LinkEvent& event)
{
    using Kind = LinkEvent::Kind;
    switch (event.kind) {
    case Kind::waiting:
        reporter_.say("Waiting for the camera (\"pavo camera\" starts it)…");
        reporter_.emit({{"event", "waiting"}});
        break;
    case Kind::connected:
        forgetWatchers();
        ::eventfd_write(connectedSignal_.get(), 1);
        reporter_.say("Connected with the camera, process " + std::to_string(event.pid) + ". Sending " +
                      describe(source_.format(), rate_) + ".");
        reporter_.emit({{"event", "connected"}, {"pid", event.pid}});
        break;
    case Kind::lost:
        forgetWatchers();
        reporter_.say("The camera has gone.");
        reporter_.emit({{"event", "lost"}});
        break;
    case Kind::subscribed:
        reporter_.say("The camera wants frames.");
        reporter_.emit({{"event", "subscribed"}});
        break;
    case Kind::unsubscribed:
        reporter_.say("The camera wants no frames: nobody watches.");
        reporter_.emit({{"event", "unsubscribed"}});
        break;
    case Kind::watcherAdded:
    case Kind::watcherRemoved: {
        const bool isAdded = event.kind == Kind::watcherAdded;
        const bool isNews = isAdded ? watchers_.insert(event.pid).second : watchers_.erase(event.pid) > 0;
        watcherCount_ = watchers_.size();
        if (!isNews) break;
        reporter_.say("Process " + std::to_string(event.pid) +
                      (isAdded ? " watches the camera." : " has stopped watching."));
        reporter_.emit({{"event", isAdded ? "watcherAdded" : "watcherRemoved"}, {"pid", event.pid}});
        break;
    }
    }
}

void FrameSender::forgetWatchers()
{
    watchers_.clear();
    watcherCount_ = 0;
}

// False: a signal came first.
bool FrameSender::waitForCamera()
{
    std::array<pollfd, 2> waiting = {{{stop_.descriptor(), POLLIN, 0}, {connectedSignal_.get(), POLLIN, 0}}};
    do {
        ::poll(waiting.data(), waiting.size(), -1);
    } while (!waiting[0].revents && !waiting[1].revents);
    return !waiting[0].revents;
}

// The look at an input that has ended is no frame.
FrameOutcome FrameSender::leaveOut(std::uint64_t& count)
{
    auto outcome = source_.skip();
    if (outcome.status == FrameStatus::ready) ++count;
    return outcome;
}

FrameOutcome FrameSender::step()
{
    if (!link_->isWanted()) {
        underWay_.clear();
        return leaveOut(leftOutUnwatched_);
    }
    const std::uint64_t generation = link_->generation();
    const bool isNewCamera = std::exchange(poolGeneration_, generation) != generation;
    if (!pool_ || isNewCamera) {
        // A camera that died has taken its claims on the old surfaces with it, unreturned.
        underWay_.clear();
        pool_ = SurfacePool::create(source_.format());
        if (!pool_)
            return {FrameStatus::failed, "there are no surfaces for " + describe(source_.format(), rate_)};
    }
    const auto buffer = pool_->take();
    if (!buffer) return leaveOut(leftOutRingFull_);
    FrameOutcome outcome{};
    {
        const LockedPixels pixels(buffer.get(), source_.format());
        outcome = source_.next(pixels.view());
    }
    if (outcome.status != FrameStatus::ready) return outcome;
    link_->send(CVPixelBufferGetIOSurface(buffer.get()), timingNow(rate_));
    underWay_.push_back(buffer);
    if (underWay_.size() > kFramesUnderWay) underWay_.pop_front();
    ++sent_;
    return outcome;
}

bool FrameSender::run(std::uint64_t frames)
{
    link_->start();
    if (!waitForCamera()) return true;
    startNs_ = monotonicNs();
    std::int64_t beginNs = startNs_, beginIndex = 0;
    bool isGood = true;
    for (std::uint64_t index = 0; frames == 0 || index < frames; ++index) {
        const std::int64_t dueNs = beginNs + rate_.dueNs(static_cast<std::int64_t>(index) - beginIndex);
        if (stop_.waitUntil(dueNs)) break;
        if (monotonicNs() - dueNs > kLateNs) {
            beginNs = monotonicNs();
            beginIndex = static_cast<std::int64_t>(index);
        }
        const auto outcome = step();
        if (outcome.status == FrameStatus::failed) {
            reporter_.error(outcome.problem);
            isGood = false;
        }
        if (outcome.status != FrameStatus::ready) break;
        showStatus();
    }
    link_->stop();
    reportStatistics();
    return isGood;
}

void FrameSender::showStatus()
{
    const std::int64_t now = monotonicNs();
    if (now < nextStatusNs_) return;
    nextStatusNs_ = now + kStatusEveryNs;
    const char* state = !link_->isConnected() ? "no camera"
                        : link_->isWanted()   ? "sending"
                                              : "nobody watches";
    reporter_.status(std::string(state) + ", " + std::to_string(watcherCount_) + " watching, " +
                     std::to_string(sent_) + " frames sent");
}

void FrameSender::reportStatistics()
{
    const double seconds = static_cast<double>(monotonicNs() - startNs_) / 1e9;
    std::array<char, 160> text{};
    std::snprintf(
        text.data(), text.size(),
        "Sent %llu frames in %.1f s; left out %llu that nobody watched and %llu for want of a free surface.",
        static_cast<unsigned long long>(sent_), seconds, static_cast<unsigned long long>(leftOutUnwatched_),
        static_cast<unsigned long long>(leftOutRingFull_));
    reporter_.say(text.data());
    reporter_.emit({{"event", "statistics"},
                    {"sent", sent_},
                    {"leftOutUnwatched", leftOutUnwatched_},
                    {"leftOutRingFull", leftOutRingFull_},
                    {"seconds", seconds}});
}

}  // namespace pavo::tools
