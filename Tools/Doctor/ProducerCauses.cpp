// The producer, from whom the pictures come.

#include "Tools/Doctor/Cause.h"

#include <algorithm>
#include <array>

namespace pavo::tools {
namespace {

// What every check here needs; its absence has causes of its own.
Finding withoutStatus(Examination& examination)
{
    return Finding::unknown("The camera cannot be asked: " + examination.status().problem().text + ".");
}

std::string nameOf(const CameraStatus::Process& producer)
{
    return "the producer, process " + std::to_string(producer.pid) +
           (producer.program.empty() ? "" : " (" + producer.program + ")") + ",";
}

Finding checkProducer(Examination& examination)
{
    if (!examination.status()) return withoutStatus(examination);
    if (const auto& producer = examination.status().value().producer)
        return Finding::fine("Process " + std::to_string(producer->pid) + " is the producer.");
    return Finding::hint(
        "No producer is connected, so clients see the placeholder picture; this is as it should be.",
        "start a producer, as: pavo send");
}

Finding checkSilence(Examination& examination)
{
    constexpr double kSettledSeconds = 2;
    if (!examination.status()) return withoutStatus(examination);
    const CameraStatus& status = examination.status().value();
    if (!status.producer) return Finding::fine("No producer is connected that could be silent.");
    if (status.clients.empty()) return Finding::fine("No client watches, so the producer need not send.");
    const double longestClient =
        std::max_element(status.clients.begin(), status.clients.end(), [](const auto& a, const auto& b) {
            return a.process.connectedSeconds < b.process.connectedSeconds;
        })->process.connectedSeconds;
    const bool isSettled = std::min(status.producer->connectedSeconds, longestClient) > kSettledSeconds;
    if (status.frames.rate > 0 || !isSettled) return Finding::fine("The producer sends.");
    return Finding::problem("A client watches, but " + nameOf(*status.producer) +
                                " sends nothing, so the picture stands still.",
                            "look at the producer: is its picture source running? kill -CONT " +
                                std::to_string(status.producer->pid) + " if it was stopped");
}

Finding checkDropped(Examination& examination)
{
    constexpr std::uint64_t kOneIn = 100;
    constexpr std::uint64_t kEnough = 10;
    if (!examination.status()) return withoutStatus(examination);
    const CameraStatus& status = examination.status().value();
    // Those that nobody was there for are no loss.
    const std::uint64_t dropped = status.frames.dropped() - status.frames.unwatched;
    if (dropped < kEnough || dropped * kOneIn < status.frames.sent) return Finding::fine("Frames arrive.");
    return Finding::hint(
        std::to_string(dropped) + " of " + std::to_string(status.frames.sent) +
            " frames could not be shown: a client is too slow, or the computer is busy.",
        "close clients that are not needed, or send fewer or smaller frames: pavo send --fps 30");
}

// A producer that has a camera where it looks for one is in its place.
bool hasOtherCamera(Examination& examination, const Examination::PavoProcess& producer)
{
    const auto foreign = examination.foreignCameras();
    const auto elsewhere = examination.camerasElsewhere();
    return std::any_of(foreign.begin(), foreign.end(),
                       [&producer](const auto& camera) { return camera.owner == producer.process.owner; }) ||
           std::any_of(elsewhere.begin(), elsewhere.end(),
                       [&producer](const auto& camera) { return camera.nameFolder == producer.nameFolder; });
}

Finding checkElsewhere(Examination& examination)
{
    if (examination.status() && examination.status().value().producer)
        return Finding::fine("The camera has a producer.");
    for (const auto& producer : examination.producers()) {
        if (hasOtherCamera(examination, producer)) continue;
        if (producer.process.owner != examination.system().user())
            return Finding::problem(namesOf({producer}) + ", a producer, is that of user " +
                                        std::to_string(producer.process.owner) +
                                        ", and the camera that of user " +
                                        std::to_string(examination.system().user()) + ".",
                                    "start the producer as the camera's user");
        if (!producer.nameFolder.empty() && producer.nameFolder != examination.nameFolder())
            return Finding::problem(
                namesOf({producer}) + ", a producer, looks for the camera in " + producer.nameFolder +
                    ", but its name is in " + examination.nameFolder() + ".",
                "start the producer with the camera's PAVO_BOOTSTRAP_DIR and XDG_RUNTIME_DIR");
    }
    return Finding::fine("No producer looks elsewhere.");
}

constexpr std::array<Cause, 4> kCauses = {{
    {"no-producer", "The placeholder picture shows", "No program sends pictures: this is no fault",
     "Start a producer, as `pavo send`", checkProducer},
    {"producer-silent", "The picture stands still", "The producer is connected but sends nothing",
     "Look at the producer", checkSilence},
    {"frames-dropped", "The picture stutters", "More than one frame in a hundred could not be shown",
     "Close other clients, or send fewer or smaller frames", checkDropped},
    {"producer-elsewhere", "The placeholder shows although a producer runs",
     "The producer is another user's, or looks for the camera in another folder",
     "Start it as the camera's user, with the same environment", checkElsewhere},
}};

}  // namespace

std::span<const Cause> producerCauses()
{
    return kCauses;
}

}  // namespace pavo::tools
