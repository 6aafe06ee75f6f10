// A producer in a process of its own that reports each message of the camera as it comes, in the words of
// `pavo send --json`, which leaves out what it has said already: here a message that comes twice is reported
// twice. Sends the test pattern, 60 frames a second, while the camera wants it, until SIGTERM.

#include "Tools/CameraLink.h"
#include "Tools/Reporter.h"
#include "Tools/StopSignal.h"
#include "Tools/SurfacePool.h"
#include "Tools/TestPattern.h"

#include <nlohmann/json.hpp>

#include <cstdint>

namespace {

using namespace pavo::tools;

constexpr double kFramesPerSecond = 60;
constexpr std::int64_t kFrameNs = 1'000'000'000 / 60;

void report(Reporter& reporter, const LinkEvent& event)
{
    using Kind = LinkEvent::Kind;
    switch (event.kind) {
    case Kind::connected:
        reporter.emit({{"event", "connected"}, {"pid", event.pid}});
        break;
    case Kind::subscribed:
        reporter.emit({{"event", "subscribed"}});
        break;
    case Kind::unsubscribed:
        reporter.emit({{"event", "unsubscribed"}});
        break;
    case Kind::watcherAdded:
        reporter.emit({{"event", "watcherAdded"}, {"pid", event.pid}});
        break;
    case Kind::watcherRemoved:
        reporter.emit({{"event", "watcherRemoved"}, {"pid", event.pid}});
        break;
    case Kind::waiting:
    case Kind::lost:
        // A test's camera is there before its producers and outlives them.
        reporter.emit({{"event", "failed"}});
        break;
    }
}

}  // namespace

int main()
{
    const StopSignal stop;
    Reporter reporter("test producer", true);
    TestPattern pattern(640, 360);
    auto pool = SurfacePool::create(pattern.format());
    if (!pool) return 1;
    const auto link = CameraLink::create(kFramesPerSecond,
                                         [&reporter](const LinkEvent& event) { report(reporter, event); });
    link->start();
    std::uint32_t sent = 0;
    for (std::int64_t dueNs = monotonicNs(); !stop.waitUntil(dueNs); dueNs = monotonicNs() + kFrameNs) {
        if (!link->isWanted()) continue;
        const auto buffer = pool->take();
        if (!buffer) continue;
        {
            const LockedPixels pixels(buffer.get(), pattern.format());
            pattern.draw(sent++, pixels.view());
        }
        CMSampleTimingInfo timing = kCMTimingInfoInvalid;
        timing.presentationTimeStamp = CMClockGetTime(CMClockGetHostTimeClock());
        link->send(CVPixelBufferGetIOSurface(buffer.get()), timing);
    }
    link->stop();
    reporter.emit({{"event", "statistics"}, {"sent", sent}});
    return 0;
}
