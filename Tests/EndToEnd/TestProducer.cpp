// A producer in a process of its own that reports each message of the camera as it comes, in the words of
// `pavo send --json`, which leaves out what it has said already: here a message that comes twice is reported
// twice. Sends the test pattern, 60 frames a second, while the camera wants it, until SIGTERM.

#include "CMIOExtensionSupport/VideoFrameService.h"
#include "Producer/CameraLink.h"
#include "Producer/SurfaceRing.h"
#include "Tools/Reporter.h"
#include "Tools/StopSignal.h"
#include "Tools/TestPattern.h"

#include <nlohmann/json.hpp>

#include <atomic>
#include <cstdint>
#include <string>

namespace {

using namespace pavo::tools;
using pavo::producer::CameraLink;
using pavo::producer::SurfaceRing;

constexpr double kFramesPerSecond = 60;
constexpr std::int64_t kFrameNs = 1'000'000'000 / 60;
constexpr std::size_t kSurfaces = 8;

void report(Reporter& reporter, const pavo_event& event)
{
    switch (event.type) {
    case PAVO_EVENT_CONNECTED:
        reporter.emit({{"event", "connected"}, {"pid", event.pid}});
        break;
    case PAVO_EVENT_SUBSCRIBED:
        reporter.emit({{"event", "subscribed"}});
        break;
    case PAVO_EVENT_UNSUBSCRIBED:
        reporter.emit({{"event", "unsubscribed"}});
        break;
    case PAVO_EVENT_WATCHER_ADDED:
        reporter.emit({{"event", "watcherAdded"}, {"pid", event.pid}});
        break;
    case PAVO_EVENT_WATCHER_REMOVED:
        reporter.emit({{"event", "watcherRemoved"}, {"pid", event.pid}});
        break;
    default:
        // A test's camera is there before its producers and outlives them.
        reporter.emit({{"event", "failed"}});
        break;
    }
}

// False while the camera has all surfaces.
bool sendPattern(TestPattern& pattern, std::uint32_t counter, SurfaceRing& ring, CameraLink& link)
{
    const auto frame = ring.take();
    if (!frame) return false;
    pattern.draw(counter, {pattern.format(), {{{frame->planes[0].data, frame->planes[0].stride}, {}, {}}}});
    const auto place = ring.find(frame->id).value();
    ring.endDrawing(place);
    CMSampleTimingInfo timing = kCMTimingInfoInvalid;
    timing.presentationTimeStamp = CMClockGetTime(CMClockGetHostTimeClock());
    ring.endSending(place, link.send(ring.surface(place), timing));
    return true;
}

}  // namespace

int main()
{
    const StopSignal stop;
    Reporter reporter("test producer", true);
    TestPattern pattern(640, 360);
    auto ring = SurfaceRing::create({PAVO_UYVY, 640, 360}, kSurfaces);
    if (!ring) return 1;
    std::atomic<bool> isWanted = false;
    const auto link = CameraLink::create(std::string(pavo::kVideoFrameServiceName), kFramesPerSecond,
                                         [&](const pavo_event& event) {
                                             isWanted = event.type == PAVO_EVENT_SUBSCRIBED ||
                                                        (isWanted && event.type != PAVO_EVENT_UNSUBSCRIBED);
                                             report(reporter, event);
                                         });
    link->start();
    std::uint32_t sent = 0;
    for (std::int64_t dueNs = monotonicNs(); !stop.waitUntil(dueNs); dueNs = monotonicNs() + kFrameNs)
        if (isWanted && sendPattern(pattern, sent, *ring, *link)) ++sent;
    link->stop();
    reporter.emit({{"event", "statistics"}, {"sent", sent}});
    return 0;
}
