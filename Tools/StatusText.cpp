#include "Tools/StatusText.h"

#include <array>
#include <cstdio>
#include <string_view>
#include <utility>

namespace pavo::tools {
namespace {

// Without control characters: those of ASCII, and those that UTF-8 has as C2 80 to C2 9F.
std::string printable(std::string_view text)
{
    std::string plain;
    for (std::size_t index = 0; index < text.size(); ++index) {
        const auto byte = static_cast<unsigned char>(text[index]);
        const auto next = index + 1 < text.size() ? static_cast<unsigned char>(text[index + 1]) : 0U;
        const bool isWideControl = byte == 0xC2 && next >= 0x80 && next < 0xA0;
        plain += byte < 0x20 || byte == 0x7F || isWideControl ? '?' : text[index];
        if (isWideControl) ++index;
    }
    return plain;
}

std::string durationOf(double seconds)
{
    constexpr long kMinute = 60, kHour = 60 * kMinute, kDay = 24 * kHour;
    const long whole = static_cast<long>(seconds);
    const auto text = [](long number, const char* unit) { return std::to_string(number) + " " + unit; };
    if (whole < kMinute) return text(whole, "s");
    if (whole < kHour) return text(whole / kMinute, "min");
    if (whole < kDay) return text(whole / kHour, "h") + " " + text(whole % kHour / kMinute, "min");
    return text(whole / kDay, "d") + " " + text(whole % kDay / kHour, "h");
}

std::string counted(std::size_t number, const char* what)
{
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string stateText(const CameraStatus& status)
{
    const std::string watching =
        counted(status.clients.size(), "client") + (status.clients.size() == 1 ? " watches" : " watch");
    switch (status.state) {
    case CameraStatus::State::live:
        return "live: " + watching + " the producer's pictures";
    case CameraStatus::State::placeholder:
        return "placeholder: " + watching +
               (status.producer ? ", and the producer has sent nothing yet" : ", and there is no producer");
    case CameraStatus::State::idle:
        return "idle: nobody watches";
    case CameraStatus::State::waiting:
        break;
    }
    return "waiting for PipeWire: nobody can see the camera";
}

std::string pipeWireText(const CameraStatus& status)
{
    switch (status.pipeWire) {
    case CameraStatus::PipeWire::daemon:
        return "the session's daemon";
    case CameraStatus::PipeWire::embedded:
        return "the camera's own, pavo-0";
    case CameraStatus::PipeWire::waiting:
        break;
    }
    return "none answers";
}

std::string processText(const CameraStatus::Process& process)
{
    const std::string name = process.program.empty() ? "process" : printable(process.program) + ", process";
    return name + " " + std::to_string(process.pid) + ", for " + durationOf(process.connectedSeconds);
}

std::string clientText(const CameraStatus::Client& client)
{
    const std::string text = processText(client.process);
    return client.applicationId ? text + ", through a portal as " + printable(*client.applicationId) : text;
}

std::string framesText(const CameraStatus::Frames& frames)
{
    std::array<char, 32> rate{};
    std::snprintf(rate.data(), rate.size(), "%.1f", frames.rate);
    std::string text = std::string(rate.data()) + " per second; " + std::to_string(frames.drawn) +
                       " drawn, " + std::to_string(frames.dropped()) + " dropped";
    const std::array<std::pair<std::uint64_t, const char*>, 4> reasons = {
        {{frames.replaced, "came too soon after the one before"},
         {frames.withoutBuffer, "found no free buffer"},
         {frames.unusable, "could not be read"},
         {frames.unwatched, "had no client any more"}}};
    const char* separator = ": ";
    for (const auto& [number, reason] : reasons) {
        if (number == 0) continue;
        text += separator + std::to_string(number) + " " + reason;
        separator = ", ";
    }
    return text;
}

}  // namespace

std::vector<std::string> textOf(const CameraStatus& status)
{
    const std::string label = status.nodeLabel.empty() ? "The camera" : printable(status.nodeLabel);
    std::vector<std::string> lines = {
        label + " " + printable(status.version) + ", process " + std::to_string(status.pid) + ", up for " +
            durationOf(status.uptimeSeconds),
        "State     " + stateText(status),
        "PipeWire  " + pipeWireText(status),
    };
    if (status.nodeId)
        lines.back() += "; node " + printable(status.nodeName) + ", number " + std::to_string(*status.nodeId);
    if (const auto& format = status.format)
        lines.push_back("Format    " + printable(format->pixel) + ", " + std::to_string(format->width) + "x" +
                        std::to_string(format->height));
    lines.push_back("Producer  " + (status.producer ? processText(*status.producer) : "none"));
    lines.push_back("Frames    " + framesText(status.frames));
    if (status.clients.empty()) lines.emplace_back("Clients   none");
    for (std::size_t index = 0; index < status.clients.size(); ++index)
        lines.push_back((index == 0 ? "Clients   " : "          ") + clientText(status.clients[index]));
    return lines;
}

}  // namespace pavo::tools
