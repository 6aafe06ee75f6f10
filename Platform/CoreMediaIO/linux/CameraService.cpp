#include "Platform/CoreMediaIO/linux/CameraService.h"

#include "Platform/CoreMediaIO/linux/CMIOExtensionImpl.h"
#include "Platform/CoreMediaIO/linux/Log.h"
#include "Platform/Support/Synchronized.h"
#include "Platform/Support/linux/ProgramName.h"

#include <algorithm>
#include <utility>

namespace cmio {

namespace {

constexpr const char* kNodeName = "pavo-camera";

// The one that was started last: there is one provider in a process. Never destroyed, because whoever asks
// may be a thread that the process ends with.
pavo::Synchronized<std::weak_ptr<CameraService>>& currentService()
{
    static auto& current = *new pavo::Synchronized<std::weak_ptr<CameraService>>;
    return current;
}

std::string askModel(ExtensionDevice& device)
{
    const auto source = device.impl().source.lock();
    const std::string key(CMIOExtensionPropertyDeviceModel);
    if (!source || !source->availableProperties().contains(key)) return {};
    ns::Error error;
    const auto properties = source->deviceProperties({key}, &error);
    return properties ? properties->model().value_or("") : "";
}

}  // namespace

std::shared_ptr<CameraService>
CameraService::start(std::weak_ptr<ExtensionProviderSource> source, dispatch::Queue clientQueue,
                     const std::vector<std::shared_ptr<ExtensionDevice>>& devices)
{
    auto service = std::make_shared<CameraService>(std::move(source), std::move(clientQueue));
    currentService().store(service);
    // Weakly: a provider that goes before its turn has nothing to publish.
    dispatch::async(service->clientQueue_.get(), [weak = std::weak_ptr(service), devices] {
        if (const auto self = weak.lock()) self->publish(devices);
    });
    return service;
}

CameraService::CameraService(std::weak_ptr<ExtensionProviderSource> source, dispatch::Queue clientQueue)
    : source_(std::move(source)),
      clientQueue_(std::move(clientQueue))
{}

CameraService::~CameraService()
{
    stop();
}

void CameraService::stop()
{
    std::shared_ptr<PipeWireLoop> loop;
    {
        const std::lock_guard guard(mutex_);
        isStopped_ = true;
        loop = std::move(loop_);
    }
    if (!loop) return;
    const PipeWireLoop::Lock lock(*loop);
    for (Published& each : published_)
        each.stream->impl().sink.store(nullptr);
    lost();
    connection_.reset();
    published_.clear();
}

ServiceReport CameraService::report()
{
    ServiceReport report = reportOfPipeWire();
    for (CameraReport& camera : report.cameras)
        for (ClientReport& client : camera.clients) {
            if (!client.isProcessKnown) continue;
            if (auto name = pavo::programName(client.process); !name.empty())
                client.program = std::move(name);
        }
    return report;
}

ServiceReport CameraService::reportOfPipeWire()
{
    ServiceReport report;
    const std::lock_guard guard(mutex_);
    if (!loop_) return report;
    const PipeWireLoop::Lock lock(*loop_);
    if (connection_) report.pipeWire = connection_->state();
    for (const Published& each : published_) {
        CameraReport camera = each.node->report();
        if (tracker_ && camera.nodeId) camera.clients = tracker_->clientsOf(*camera.nodeId);
        report.cameras.push_back(std::move(camera));
    }
    return report;
}

void CameraService::publish(const std::vector<std::shared_ptr<ExtensionDevice>>& devices)
{
    const std::lock_guard guard(mutex_);
    if (isStopped_) return;
    loop_ = std::make_shared<PipeWireLoop>();
    const PipeWireLoop::Lock lock(*loop_);
    for (const auto& device : devices)
        for (const auto& stream : device->impl().streams)
            if (stream->impl().direction == ExtensionStreamDirection::source) publish(*device, stream);
    PipeWireConnection::Callbacks callbacks;
    callbacks.connected = [this](pw_core* core) { connected(core); };
    callbacks.lost = [this] { lost(); };
    connection_ = std::make_unique<PipeWireConnection>(*loop_, PipeWireConnection::serverFromEnvironment(),
                                                       std::move(callbacks));
}

void CameraService::publish(ExtensionDevice& device, const std::shared_ptr<ExtensionStream>& stream)
{
    const auto description = describe(device, *stream);
    if (!description) {
        os_log_printf(faceLog(), OS_LOG_TYPE_ERROR,
                      "Stream '%s' has no format with a size: it is not published",
                      stream->impl().localizedName.c_str());
        return;
    }
    auto node = std::make_shared<CameraNode>(loop_, *description, [this] { connection_->restart(); });
    auto refuse = [weak = weak_from_this(), name = description->nodeName](std::int32_t process) {
        if (const auto self = weak.lock()) self->refuse(name, process);
    };
    auto clients = std::make_shared<StreamClients>(source_, stream, std::move(refuse));
    stream->impl().sink.store(node);
    published_.push_back({stream, std::move(node), std::move(clients), {}});
}

std::optional<CameraDescription> CameraService::describe(ExtensionDevice& device,
                                                         ExtensionStream& stream) const
{
    const auto source = stream.impl().source.lock();
    if (!source) return std::nullopt;
    const auto formats = source->formats();
    if (formats.empty() || !formats.front().formatDescription) return std::nullopt;
    const auto size = CMVideoFormatDescriptionGetDimensions(formats.front().formatDescription.get());
    if (size.width <= 0 || size.height <= 0) return std::nullopt;

    CameraDescription description;
    description.nodeName = kNodeName;
    if (!published_.empty()) description.nodeName += "-" + std::to_string(published_.size() + 1);
    description.label = device.impl().localizedName;
    description.model = askModel(device);
    description.manufacturer = askManufacturer();
    description.width = size.width;
    description.height = size.height;
    return description;
}

std::string CameraService::askManufacturer() const
{
    const auto source = source_.lock();
    const std::string key(CMIOExtensionPropertyProviderManufacturer);
    if (!source || !source->availableProperties().contains(key)) return {};
    ns::Error error;
    const auto properties = source->providerProperties({key}, &error);
    return properties ? properties->manufacturer().value_or("") : "";
}

void CameraService::connected(pw_core* core)
{
    tracker_ = std::make_unique<ClientTracker>(core, [this] { updateClients(); });
    for (const Published& each : published_)
        each.node->attach(core);
}

void CameraService::lost()
{
    for (const Published& each : published_)
        each.node->detach();
    tracker_.reset();
    updateClients();
}

void CameraService::updateClients()
{
    bool isInUse = false;
    for (Published& each : published_) {
        const auto node = each.node->nodeId();
        auto processes = tracker_ && node ? tracker_->processesOf(*node) : std::set<std::int32_t>();
        isInUse = isInUse || !processes.empty();
        if (processes == each.processes) continue;
        each.processes = processes;
        dispatch::async(clientQueue_.get(),
                        [clients = each.clients, now = std::move(processes)] { clients->setProcesses(now); });
    }
    connection_->setInUse(isInUse);
}

void CameraService::refuse(const std::string& nodeName, std::int32_t process)
{
    const std::lock_guard guard(mutex_);
    if (!loop_) return;
    const PipeWireLoop::Lock lock(*loop_);
    const auto refusing =
        std::find_if(published_.begin(), published_.end(),
                     [&nodeName](const Published& each) { return each.node->name() == nodeName; });
    if (refusing == published_.end()) return;
    if (const auto node = refusing->node->nodeId(); node && tracker_) tracker_->unlink(*node, process);
}

std::optional<ServiceReport> reportCameras()
{
    const auto service = currentService().load().lock();
    if (!service) return std::nullopt;
    return service->report();
}

}  // namespace cmio
