#include "Tools/StatusService.h"

#include "CMIOExtensionSupport/VideoFrameService.h"
#include "Platform/CoreMediaIO/linux/CameraReport.h"
#include "Platform/Support/UniqueFd.h"
#include "Platform/Support/linux/ProgramName.h"
#include "Platform/XPC/linux/AcceptedPeers.h"
#include "Tools/CameraStatusService.h"

#include <servers/bootstrap.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace pavo::tools {
namespace {

using Clock = std::chrono::steady_clock;

// So that an answer fits into a message, whatever clients call themselves and however many there are.
constexpr std::size_t kMaxNameBytes = 64;
constexpr std::size_t kMaxClients = 100;

double secondsSince(Clock::time_point time)
{
    return std::chrono::duration<double>(Clock::now() - time).count();
}

// Names are what others say: cut at a whole character, and without control characters, whose JSON is long.
std::string tamed(std::string name)
{
    if (name.size() > kMaxNameBytes) {
        std::size_t end = kMaxNameBytes;
        while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80)
            --end;
        name.resize(end);
    }
    std::replace_if(name.begin(), name.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
    return name;
}

std::string_view nameOf(cmio::VideoFormat format)
{
    return format == cmio::VideoFormat::nv12 ? "NV12" : "YUY2";
}

CameraStatus::PipeWire pipeWireOf(cmio::PipeWireState state)
{
    switch (state) {
    case cmio::PipeWireState::daemon:
        return CameraStatus::PipeWire::daemon;
    case cmio::PipeWireState::embedded:
        return CameraStatus::PipeWire::embedded;
    case cmio::PipeWireState::waiting:
        break;
    }
    return CameraStatus::PipeWire::waiting;
}

CameraStatus::State stateOf(const CameraStatus& status, bool isForeign)
{
    using State = CameraStatus::State;
    if (status.pipeWire == CameraStatus::PipeWire::waiting) return State::waiting;
    if (status.clients.empty()) return State::idle;
    return isForeign ? State::live : State::placeholder;
}

void describe(const cmio::CameraReport& camera, CameraStatus& status)
{
    status.nodeName = camera.nodeName;
    status.nodeLabel = camera.label;
    status.nodeId = camera.nodeId;
    if (const auto& layout = camera.layout)
        status.format = {std::string(nameOf(layout->format)), layout->width, layout->height};
    for (const auto& client : camera.clients) {
        if (status.clients.size() == kMaxClients) break;
        CameraStatus::Client& added = status.clients.emplace_back();
        added.process = {client.process, tamed(client.program), secondsSince(client.since)};
        if (!client.portalApplication.empty()) added.applicationId = tamed(client.portalApplication);
    }
    const cmio::FrameCounts& frames = camera.frames;
    status.frames = {frames.sent,     frames.drawn,     frames.replaced,       frames.withoutBuffer,
                     frames.unusable, frames.unwatched, frames.framesPerSecond};
}

// Of several, the camera speaks to the one that came last.
std::optional<CameraStatus::Process> findProducer()
{
    std::optional<CameraStatus::Process> producer;
    for (const auto& peer : xpc::AcceptedPeers::shared().connected())
        if (peer.service == kVideoFrameServiceName)
            producer = {peer.process, tamed(programName(peer.process)), secondsSince(peer.since)};
    return producer;
}

// The process that has the name; 0 where it has just given it up.
pid_t ownerOfName(mach_port_t where, const name_t& name)
{
    mach_port_t port = MACH_PORT_NULL;
    if (bootstrap_look_up(where, name, &port) != BOOTSTRAP_SUCCESS) return 0;
    const UniqueFd connection(static_cast<int>(port));
    ucred owner{};
    socklen_t size = sizeof owner;
    return ::getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &owner, &size) == 0 ? owner.pid : 0;
}

Problem alreadyRunning(pid_t process)
{
    const std::string who = process > 0 ? ", as process " + std::to_string(process) : "";
    return Problem{"a camera is running already" + who + "; one user has one camera"};
}

Problem noPlace()
{
    for (const char* name : {"PAVO_BOOTSTRAP_DIR", "XDG_RUNTIME_DIR"})
        if (const char* folder = std::getenv(name))
            return Problem{std::string("no program could find this camera: the folder for its sockets cannot "
                                       "be made or used, ") +
                           name + " is " + folder};
    return Problem{
        "no program could find this camera: the folder for its sockets cannot be made or used, and "
        "XDG_RUNTIME_DIR is not set"};
}

}  // namespace

class StatusService::Delegate final : public xpc::ListenerDelegate,
                                      public CameraStatusService,
                                      public std::enable_shared_from_this<Delegate> {
public:
    explicit Delegate(std::string version) : version_(std::move(version)) {}

    bool listenerShouldAcceptNewConnection(xpc::Listener&,
                                           const std::shared_ptr<xpc::Connection>& newConnection) override
    {
        newConnection->setExportedInterface(xpc::describe<CameraStatusService>());
        newConnection->setExportedObject(xpc::exportObject<CameraStatusService>(shared_from_this()));
        newConnection->resume();
        return true;
    }

    void status(xpc::Reply<ns::Data> reply) override
    {
        // Programs may be called anything; JSON has to be UTF-8.
        const auto text = toJson(now()).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        const auto bytes = std::as_bytes(std::span(text));
        reply(ns::Data(bytes.begin(), bytes.end()));
    }

private:
    CameraStatus now() const
    {
        CameraStatus status;
        status.pid = ::getpid();
        status.uptimeSeconds = secondsSince(start_);
        status.version = version_;
        bool isForeign = false;
        if (const auto report = cmio::reportCameras()) {
            status.pipeWire = pipeWireOf(report->pipeWire);
            if (!report->cameras.empty()) {
                describe(report->cameras.front(), status);
                isForeign = report->cameras.front().frames.isForeign;
            }
        }
        status.producer = findProducer();
        status.state = stateOf(status, isForeign);
        return status;
    }

    const std::string version_;
    const Clock::time_point start_ = Clock::now();
};

Result<std::shared_ptr<StatusService>> StatusService::create(const std::string& version)
{
    auto listener = xpc::Listener::anonymousListener();
    const auto endpoint = listener->endpoint();
    mach_port_t user = MACH_PORT_NULL;
    bootstrap_parent(bootstrap_port, &user);
    name_t name{};
    kStatusServiceName.copy(name, sizeof(name) - 1);
    const auto result = bootstrap_register(user, name, xpc::ListenerEndpoint::machPort(endpoint.object()));
    if (result == BOOTSTRAP_SERVICE_ACTIVE) return alreadyRunning(ownerOfName(user, name));
    if (result != BOOTSTRAP_SUCCESS) return noPlace();
    return std::make_shared<StatusService>(std::move(listener), version);
}

StatusService::StatusService(std::shared_ptr<xpc::Listener> listener, const std::string& version)
    : listener_(std::move(listener)),
      delegate_(std::make_shared<Delegate>(version))
{
    listener_->setDelegate(delegate_);
}

StatusService::~StatusService()
{
    listener_->invalidate();
}

void StatusService::start()
{
    listener_->resume();
}

}  // namespace pavo::tools
