#include "Tools/CameraStatus.h"

#include <array>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

namespace pavo::tools {
namespace {

using nlohmann::json;
using PipeWire = CameraStatus::PipeWire;
using State = CameraStatus::State;

constexpr std::array kPipeWires = {PipeWire::daemon, PipeWire::embedded, PipeWire::waiting};
constexpr std::array kStates = {State::placeholder, State::live, State::idle, State::waiting};

// Throws as the JSON library does where there is no such name.
template <typename Value, std::size_t Size>
Value valueNamed(const std::array<Value, Size>& values, const json& name)
{
    for (const Value value : values)
        if (name.get<std::string>() == nameOf(value)) return value;
    throw json::other_error::create(501, "unknown value", &name);
}

template <typename Value>
json orNull(const std::optional<Value>& value)
{
    return value ? json(*value) : json();
}

json toJson(const CameraStatus::Process& process)
{
    return {{"pid", process.pid}, {"program", process.program}, {"connected_s", process.connectedSeconds}};
}

json toJson(const CameraStatus::Client& client)
{
    json object = toJson(client.process);
    object["app_id"] = orNull(client.applicationId);
    return object;
}

json toJson(const CameraStatus::Frames& frames)
{
    return {{"sent", frames.sent},
            {"drawn", frames.drawn},
            {"dropped", frames.dropped()},
            {"dropped_because",
             {{"replaced", frames.replaced},
              {"no_buffer", frames.withoutBuffer},
              {"unusable", frames.unusable},
              {"unwatched", frames.unwatched}}},
            {"rate", frames.rate}};
}

CameraStatus::Process processFrom(const json& object)
{
    return {object.at("pid"), object.at("program"), object.at("connected_s")};
}

CameraStatus::Client clientFrom(const json& object)
{
    CameraStatus::Client client{processFrom(object), std::nullopt};
    if (const auto& id = object.at("app_id"); !id.is_null()) client.applicationId = id.get<std::string>();
    return client;
}

CameraStatus::Frames framesFrom(const json& object)
{
    const auto& reasons = object.at("dropped_because");
    CameraStatus::Frames frames;
    frames.sent = object.at("sent");
    frames.drawn = object.at("drawn");
    frames.replaced = reasons.at("replaced");
    frames.withoutBuffer = reasons.at("no_buffer");
    frames.unusable = reasons.at("unusable");
    frames.unwatched = reasons.at("unwatched");
    frames.rate = object.at("rate");
    return frames;
}

CameraStatus statusFrom(const json& object)
{
    CameraStatus status;
    status.pid = object.at("pid");
    status.uptimeSeconds = object.at("uptime_s");
    status.version = object.at("version");
    status.pipeWire = valueNamed(kPipeWires, object.at("pipewire"));
    const auto& node = object.at("node");
    status.nodeName = node.at("name");
    status.nodeLabel = node.at("label");
    if (!node.at("id").is_null()) status.nodeId = node.at("id").get<std::uint32_t>();
    status.state = valueNamed(kStates, object.at("state"));
    if (const auto& format = object.at("format"); !format.is_null())
        status.format = {format.at("pixel"), format.at("width"), format.at("height")};
    if (const auto& producer = object.at("producer"); !producer.is_null())
        status.producer = processFrom(producer);
    for (const auto& client : object.at("clients"))
        status.clients.push_back(clientFrom(client));
    status.frames = framesFrom(object.at("frames"));
    return status;
}

}  // namespace

const char* nameOf(PipeWire pipeWire)
{
    switch (pipeWire) {
    case PipeWire::daemon:
        return "daemon";
    case PipeWire::embedded:
        return "embedded";
    case PipeWire::waiting:
        break;
    }
    return "waiting";
}

const char* nameOf(State state)
{
    switch (state) {
    case State::placeholder:
        return "placeholder";
    case State::live:
        return "live";
    case State::idle:
        return "idle";
    case State::waiting:
        break;
    }
    return "waiting";
}

nlohmann::json toJson(const CameraStatus& status)
{
    json format;
    if (status.format)
        format = {{"pixel", status.format->pixel},
                  {"width", status.format->width},
                  {"height", status.format->height}};
    json clients = json::array();
    for (const auto& client : status.clients)
        clients.push_back(toJson(client));
    return {{"pid", status.pid},
            {"uptime_s", status.uptimeSeconds},
            {"version", status.version},
            {"pipewire", nameOf(status.pipeWire)},
            {"node", {{"name", status.nodeName}, {"id", orNull(status.nodeId)}, {"label", status.nodeLabel}}},
            {"state", nameOf(status.state)},
            {"format", std::move(format)},
            {"producer", status.producer ? toJson(*status.producer) : json()},
            {"clients", std::move(clients)},
            {"frames", toJson(status.frames)}};
}

Result<CameraStatus> statusFromJson(const nlohmann::json& json)
{
    // The library has no other way to say that something is missing or of another type.
    try {
        return statusFrom(json);
    } catch (const nlohmann::json::exception& error) {
        return Problem{std::string("its answer cannot be read: ") + error.what()};
    }
}

}  // namespace pavo::tools
