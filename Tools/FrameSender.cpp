#include "Tools/FrameSender.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <thread>
#include <utility>

namespace pavo::tools {
namespace {

pavo_pixel_format formatOf(Packing packing)
{
    switch (packing) {
    case Packing::uyvy:
        return PAVO_UYVY;
    case Packing::yuy2:
        return PAVO_YUY2;
    case Packing::nv12:
        return PAVO_NV12;
    case Packing::i420:
        return PAVO_I420;
    case Packing::bgra:
        break;
    }
    return PAVO_BGRA;
}

ImageView viewOf(const ProducerFrame& frame, const VideoFormat& format)
{
    ImageView view{format, {}};
    for (std::size_t i = 0; i < frame.planeCount(); ++i)
        view.planes[i] = {frame.plane(i).data, frame.plane(i).stride};
    return view;
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
      connectedSignal_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{}

// Until the producer is closed.
void FrameSender::listen(const Producer& producer)
{
    for (;;) {
        pavo_event event{};
        const auto status = producer.nextEvent(event);
        if (status == ProducerStatus::ok) report(event);
        if (status == ProducerStatus::closed) return;
    }
}

void FrameSender::report(const pavo_event& event)
{
    const auto process = "process " + std::to_string(event.pid);
    switch (event.type) {
    case PAVO_EVENT_WAITING:
        reporter_.say("Waiting for the camera (\"pavo camera\" starts it)…");
        reporter_.emit({{"event", "waiting"}});
        break;
    case PAVO_EVENT_CONNECTED:
        ::eventfd_write(connectedSignal_.get(), 1);
        reporter_.say("Connected with the camera, " + process + ". Sending " +
                      describe(source_.format(), rate_) + ".");
        reporter_.emit({{"event", "connected"}, {"pid", event.pid}});
        break;
    case PAVO_EVENT_LOST:
        reporter_.say("The camera has gone.");
        reporter_.emit({{"event", "lost"}});
        break;
    case PAVO_EVENT_SUBSCRIBED:
        reporter_.say("The camera wants frames.");
        reporter_.emit({{"event", "subscribed"}});
        break;
    case PAVO_EVENT_UNSUBSCRIBED:
        reporter_.say("The camera wants no frames: nobody watches.");
        reporter_.emit({{"event", "unsubscribed"}});
        break;
    case PAVO_EVENT_WATCHER_ADDED:
        reporter_.say("Process " + std::to_string(event.pid) + " watches the camera.");
        reporter_.emit({{"event", "watcherAdded"}, {"pid", event.pid}});
        break;
    case PAVO_EVENT_WATCHER_REMOVED:
        reporter_.say("Process " + std::to_string(event.pid) + " has stopped watching.");
        reporter_.emit({{"event", "watcherRemoved"}, {"pid", event.pid}});
        break;
    default:
        break;
    }
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

FrameOutcome FrameSender::step(const Producer& producer)
{
    ProducerStatus status{};
    auto frame = producer.beginFrame(&status);
    if (!frame) return leaveOut(status == ProducerStatus::ringFull ? leftOutRingFull_ : leftOutUnwatched_);
    const auto outcome = source_.next(viewOf(*frame, source_.format()));
    if (outcome.status == FrameStatus::ready) frame->send();
    return outcome;
}

bool FrameSender::sendAll(const Producer& producer, std::uint64_t frames)
{
    for (std::uint64_t index = 0; frames == 0 || index < frames; ++index) {
        const auto dueNs = producer.nextFrameTime();
        if (!dueNs || stop_.waitUntil(*dueNs)) return true;
        const auto outcome = step(producer);
        if (outcome.status == FrameStatus::failed) reporter_.error(outcome.problem);
        if (outcome.status != FrameStatus::ready) return outcome.status != FrameStatus::failed;
        showStatus(producer);
    }
    return true;
}

bool FrameSender::run(std::uint64_t frames)
{
    const auto format = source_.format();
    pavo_producer_config config =
        PAVO_PRODUCER_CONFIG_INIT(formatOf(format.packing), format.width, format.height);
    config.rate_numerator = rate_.numerator;
    config.rate_denominator = rate_.denominator;
    ProducerStatus status{};
    const auto producer = Producer::open(config, &status);
    if (!producer) {
        reporter_.error("cannot send " + describe(format, rate_) + ": " + pavo::describe(status));
        return false;
    }
    std::thread listener([this, &producer] { listen(*producer); });
    bool isGood = true;
    const bool wasThere = waitForCamera();
    if (wasThere) {
        startNs_ = monotonicNs();
        isGood = sendAll(*producer, frames);
    }
    const std::uint64_t sent = producer->statistics().sent;
    producer->close();
    listener.join();
    if (wasThere) reportStatistics(sent);
    return isGood;
}

void FrameSender::showStatus(const Producer& producer)
{
    const std::int64_t now = monotonicNs();
    if (now < nextStatusNs_) return;
    nextStatusNs_ = now + Reporter::kStatusEveryNs;
    const char* state = !producer.isConnected() ? "no camera"
                        : producer.isWanted()   ? "sending"
                                                : "nobody watches";
    reporter_.status(std::string(state) + ", " + std::to_string(producer.watchers().size()) + " watching, " +
                     std::to_string(producer.statistics().sent) + " frames sent");
}

void FrameSender::reportStatistics(std::uint64_t sent)
{
    const double seconds = static_cast<double>(monotonicNs() - startNs_) / 1e9;
    std::array<char, 160> text{};
    std::snprintf(
        text.data(), text.size(),
        "Sent %llu frames in %.1f s; left out %llu that nobody watched and %llu for want of a free surface.",
        static_cast<unsigned long long>(sent), seconds, static_cast<unsigned long long>(leftOutUnwatched_),
        static_cast<unsigned long long>(leftOutRingFull_));
    reporter_.say(text.data());
    reporter_.emit({{"event", "statistics"},
                    {"sent", sent},
                    {"leftOutUnwatched", leftOutUnwatched_},
                    {"leftOutRingFull", leftOutRingFull_},
                    {"seconds", seconds}});
}

}  // namespace pavo::tools
