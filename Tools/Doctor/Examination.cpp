#include "Tools/Doctor/Examination.h"

#include "CMIOExtensionSupport/VideoFrameService.h"

#include <algorithm>

namespace pavo::tools {
namespace {

std::string valueIn(const std::map<std::string, std::string>& environment, const std::string& name)
{
    const auto found = environment.find(name);
    return found == environment.end() ? std::string() : found->second;
}

}  // namespace

std::optional<std::string> Examination::variable(const std::string& name) const
{
    auto value = system_.environment(name);
    return value && !value->empty() ? value : std::nullopt;
}

std::string Examination::runtimeFolder() const
{
    for (const char* name : {"PIPEWIRE_RUNTIME_DIR", "XDG_RUNTIME_DIR"})
        if (const auto folder = variable(name)) return *folder;
    return {};
}

// As the camera and its producers do it.
std::string Examination::folderFor(const std::map<std::string, std::string>& environment) const
{
    if (const std::string moved = valueIn(environment, "PAVO_BOOTSTRAP_DIR"); !moved.empty())
        return moved + "/user";
    const std::string user = std::to_string(system_.user());
    for (const std::string& folder : {valueIn(environment, "XDG_RUNTIME_DIR"), "/run/user/" + user}) {
        if (!folder.starts_with('/')) continue;
        const auto status = system_.statusOf(folder);
        if (status && status->kind == FileStatus::Kind::folder && status->owner == system_.user())
            return folder + "/pavo";
    }
    return "/tmp/pavo-" + user;
}

const std::string& Examination::nameFolder()
{
    if (nameFolder_) return *nameFolder_;
    std::map<std::string, std::string> environment;
    for (const char* name : {"PAVO_BOOTSTRAP_DIR", "XDG_RUNTIME_DIR"})
        if (const auto value = variable(name)) environment[name] = *value;
    return nameFolder_.emplace(folderFor(environment));
}

std::string Examination::cameraName()
{
    return nameFolder() + "/" + std::string(kVideoFrameServiceName);
}

std::string Examination::clientRemote() const
{
    const std::string remote = variable("PIPEWIRE_REMOTE").value_or(kDaemon);
    // A list of names, of which the session's is one.
    return remote.starts_with('[') ? kDaemon : remote;
}

const std::vector<Process>& Examination::processes()
{
    if (!processes_) processes_ = system_.processes();
    return *processes_;
}

std::vector<Examination::PavoProcess> Examination::running(const std::string& command)
{
    // The camera is a program of its own, started by the same words.
    const char* const program = command == "camera" ? "pavo-camera" : "pavo";
    std::vector<PavoProcess> found;
    for (const Process& process : processes()) {
        if (process.program != program || process.arguments.size() < 2 || process.arguments[1] != command)
            continue;
        PavoProcess& each = found.emplace_back();
        each.process = process;
        if (process.owner != system_.user()) continue;
        if (const auto environment = system_.environmentOf(process.pid)) {
            each.environment = *environment;
            each.nameFolder = folderFor(*environment);
        }
    }
    return found;
}

std::vector<Examination::PavoProcess> Examination::camerasHere()
{
    auto cameras = running("camera");
    std::erase_if(cameras, [this](const PavoProcess& each) { return each.nameFolder != nameFolder(); });
    return cameras;
}

std::vector<Examination::PavoProcess> Examination::camerasElsewhere()
{
    auto cameras = running("camera");
    std::erase_if(cameras, [this](const PavoProcess& each) {
        return each.nameFolder.empty() || each.nameFolder == nameFolder();
    });
    return cameras;
}

std::vector<Examination::PavoProcess> Examination::producers()
{
    return running("send");
}

std::vector<Process> Examination::foreignCameras()
{
    std::vector<Process> found;
    for (const PavoProcess& each : running("camera"))
        if (each.process.owner != system_.user()) found.push_back(each.process);
    return found;
}

const Result<CameraStatus>& Examination::status()
{
    return status_ ? *status_ : statusAgain();
}

const Result<CameraStatus>& Examination::statusAgain()
{
    return status_.emplace(system_.cameraStatus());
}

const PipeWireAnswer& Examination::pipeWire(const std::string& remote)
{
    const auto found = pipeWires_.find(remote);
    return found != pipeWires_.end() ? found->second : pipeWireAgain(remote);
}

const PipeWireAnswer& Examination::pipeWireAgain(const std::string& remote)
{
    return pipeWires_.insert_or_assign(remote, system_.pipeWire(remote)).first->second;
}

const Result<CameraPortal>& Examination::portal()
{
    if (!portal_) portal_.emplace(system_.cameraPortal());
    return *portal_;
}

const Result<std::optional<UserService>>& Examination::service()
{
    if (!service_) service_.emplace(system_.cameraService());
    return *service_;
}

std::string restartOf(Examination& examination)
{
    const auto& service = examination.service();
    const bool isService = service && service.value() && service.value()->activeState == "active";
    return isService ? "systemctl --user restart pavo-camera"
                     : "end the camera and start it again: pavo camera";
}

std::string namesOf(const std::vector<Examination::PavoProcess>& processes)
{
    std::string names = processes.size() == 1 ? "Process " : "Processes ";
    for (std::size_t index = 0; index < processes.size(); ++index) {
        if (index > 0) names += index + 1 == processes.size() ? " and " : ", ";
        names += std::to_string(processes[index].process.pid);
    }
    return names;
}

}  // namespace pavo::tools
