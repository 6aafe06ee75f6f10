#include "Producer/Session.h"

#include <CoreMedia/CoreMedia.h>

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <utility>

namespace pavo::producer {
namespace {

constexpr std::int32_t kNsTimeScale = 1'000'000'000;

CMSampleTimingInfo timingOf(const pavo_timing* timing, const Rate& rate)
{
    CMSampleTimingInfo info = kCMTimingInfoInvalid;
    if (timing) {
        info.duration = CMTimeMake(timing->duration_ns, kNsTimeScale);
        info.presentationTimeStamp = CMTimeMake(timing->presentation_ns, kNsTimeScale);
    } else {
        // A time scale has a sign, so the largest fractions are halved; nobody sees the difference.
        const std::uint32_t halves = rate.numerator > INT_MAX ? 2 : 1;
        info.duration =
            CMTimeMake(rate.denominator / halves, static_cast<std::int32_t>(rate.numerator / halves));
        info.presentationTimeStamp = CMTimeMake(monotonicNs(), kNsTimeScale);
    }
    return info;
}

}  // namespace

std::shared_ptr<Session> Session::open(const Configuration& configuration)
{
    auto ring = SurfaceRing::create(configuration.format, configuration.surfaceCount);
    if (!ring) return nullptr;
    std::shared_ptr<Session> session(new Session(configuration, std::move(*ring)));
    if (!session->connectedFlag_.isValid() || !session->wantedFlag_.isValid() ||
        !session->closedFlag_.isValid() || !session->events_.flag().isValid())
        return nullptr;
    session->link_->start();
    return session;
}

Session::Session(const Configuration& configuration, SurfaceRing ring)
    : process_(::getpid()),
      ring_(std::move(ring)),
      pacer_(configuration.rate),
      link_(CameraLink::create(configuration.service, configuration.rate.framesPerSecond(),
                               [this](const pavo_event& event) { heard(event); }))
{
    watchers_.reserve(kMostWatchers);
    sender_.emplace(configuration.surfaceCount, [this](const SendThread::Item& item) { send(item); });
}

Session::~Session()
{
    close();
}

void Session::close()
{
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(isClosed_, true)) return;
    }
    // What waits looks at isClosed_ when it wakes up. These flags are never lowered again.
    connectedFlag_.raise();
    wantedFlag_.raise();
    closedFlag_.raise();
    events_.flag().raise();
    // In this order: what was sent before is handed over first.
    sender_->stop();
    link_->stop();
}

bool Session::isOfThisProcess() const
{
    return process_ == ::getpid();
}

void Session::heard(const pavo_event& event)
{
    const std::lock_guard lock(mutex_);
    if (isClosed_) return;
    if (apply(event)) events_.push(event);
}

bool Session::apply(const pavo_event& event)
{
    switch (event.type) {
    case PAVO_EVENT_CONNECTED:
        ring_.forgetCamera();
        watchers_.clear();
        ++statistics_.connections;
        connectedFlag_.raise();
        break;
    case PAVO_EVENT_LOST:
        watchers_.clear();
        connectedFlag_.lower();
        setWanted(false);
        break;
    case PAVO_EVENT_SUBSCRIBED:
    case PAVO_EVENT_UNSUBSCRIBED:
        setWanted(event.type == PAVO_EVENT_SUBSCRIBED);
        break;
    case PAVO_EVENT_WATCHER_ADDED:
        if (watchers_.size() == kMostWatchers || isWatching(event.pid)) return false;
        watchers_.push_back(event.pid);
        break;
    case PAVO_EVENT_WATCHER_REMOVED:
        return std::erase(watchers_, event.pid) > 0;
    default:
        break;
    }
    return true;
}

bool Session::isWatching(std::int32_t pid) const
{
    return std::find(watchers_.begin(), watchers_.end(), pid) != watchers_.end();
}

void Session::setWanted(bool isWanted)
{
    isWanted_ = isWanted;
    if (isWanted)
        wantedFlag_.raise();
    else
        wantedFlag_.lower();
}

pavo_status Session::waitFor(const Flag& flag, std::int64_t timeoutNs)
{
    const auto status = flag.waitUntil(deadlineAfter(timeoutNs));
    const std::lock_guard lock(mutex_);
    return isClosed_ ? PAVO_ERROR_CLOSED : status;
}

pavo_status Session::nextEvent(pavo_event& event, std::int64_t timeoutNs)
{
    const std::int64_t deadlineNs = deadlineAfter(timeoutNs);
    for (;;) {
        {
            const std::lock_guard lock(mutex_);
            if (isClosed_) return PAVO_ERROR_CLOSED;
            if (const auto next = events_.pop()) {
                event = *next;
                return PAVO_OK;
            }
        }
        const auto status = events_.flag().waitUntil(deadlineNs);
        if (status != PAVO_OK) return status;
    }
}

std::vector<std::int32_t> Session::watchers() const
{
    const std::lock_guard lock(mutex_);
    return watchers_;
}

pavo_status Session::beginFrame(pavo_frame& frame)
{
    const std::lock_guard lock(mutex_);
    if (isClosed_) return PAVO_ERROR_CLOSED;
    if (!isWanted_) {
        ++statistics_.skipped_unwatched;
        return PAVO_NOT_WANTED;
    }
    const auto taken = ring_.take();
    if (!taken) {
        ++statistics_.skipped_ring_full;
        return PAVO_RING_FULL;
    }
    frame = *taken;
    return PAVO_OK;
}

pavo_status Session::sendFrame(std::uint64_t frameId, const pavo_timing* timing)
{
    if (timing && timing->duration_ns <= 0) return PAVO_ERROR_ARGUMENT;
    const std::lock_guard lock(mutex_);
    if (isClosed_) return PAVO_ERROR_CLOSED;
    const auto place = ring_.find(frameId);
    if (!place) return PAVO_ERROR_FRAME;
    ring_.endDrawing(*place);
    ++statistics_.sent;
    sender_->push({*place, timingOf(timing, pacer_.rate())});
    return PAVO_OK;
}

void Session::send(const SendThread::Item& item)
{
    cf::Ref<IOSurfaceRef> surface;
    {
        const std::lock_guard lock(mutex_);
        surface = cf::retain(ring_.surface(item.place));
    }
    const bool wasSent = link_->send(surface.get(), item.timing);
    const std::lock_guard lock(mutex_);
    ring_.endSending(item.place, wasSent);
    if (!wasSent) ++statistics_.lost;
}

pavo_status Session::discardFrame(std::uint64_t frameId)
{
    const std::lock_guard lock(mutex_);
    if (isClosed_) return PAVO_ERROR_CLOSED;
    const auto place = ring_.find(frameId);
    if (!place) return PAVO_ERROR_FRAME;
    ring_.discard(*place);
    ++statistics_.discarded;
    return PAVO_OK;
}

cf::Ref<IOSurfaceRef> Session::surfaceOf(std::uint64_t frameId) const
{
    const std::lock_guard lock(mutex_);
    const auto place = ring_.find(frameId);
    return place ? cf::retain(ring_.surface(*place)) : cf::Ref<IOSurfaceRef>();
}

std::int64_t Session::nextFrameTime()
{
    const std::lock_guard lock(mutex_);
    return pacer_.next(monotonicNs());
}

pavo_status Session::waitUntil(std::int64_t timeNs)
{
    const auto status = closedFlag_.waitUntil(timeNs);
    if (status == PAVO_OK) return PAVO_ERROR_CLOSED;
    return status == PAVO_TIMED_OUT ? PAVO_OK : status;
}

void Session::setRate(const Rate& rate)
{
    {
        const std::lock_guard lock(mutex_);
        pacer_.setRate(rate);
    }
    link_->setRate(rate.framesPerSecond());
}

pavo_statistics Session::statistics() const
{
    const std::lock_guard lock(mutex_);
    return statistics_;
}

}  // namespace pavo::producer
