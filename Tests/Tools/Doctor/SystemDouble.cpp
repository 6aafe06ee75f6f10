#include "Tests/Tools/Doctor/SystemDouble.h"

#include <algorithm>

namespace pavo::test {

using tools::CameraPortal;
using tools::CameraStatus;
using tools::Examination;
using tools::FileStatus;
using tools::PipeWireAnswer;
using tools::PipeWireGraph;
using tools::Process;
using tools::UserService;

namespace {

CameraStatus healthyStatus()
{
    CameraStatus status;
    status.pid = SystemDouble::kCamera;
    status.version = "1.2.3";
    status.pipeWire = CameraStatus::PipeWire::daemon;
    status.nodeName = Examination::kNodeName;
    status.nodeLabel = "Pavo Camera";
    status.state = CameraStatus::State::live;
    status.producer = {SystemDouble::kProducer, "pavo", 60};
    status.clients = {{{SystemDouble::kClient, "chromium", 60}, std::nullopt}};
    status.frames.sent = 3600;
    status.frames.drawn = 3600;
    status.frames.rate = 60;
    return status;
}

}  // namespace

SystemDouble::SystemDouble()
    : status(healthyStatus()),
      service(std::optional(UserService{"enabled", "active", "running"})),
      portal(CameraPortal{true, 400, true, true}),
      permissions(std::map<std::string, std::string>{{"", "yes"}})
{
    variables = {{"XDG_RUNTIME_DIR", "/run/user/1000"}, {"HOME", "/home/user"}};
    addFolder("/run/user/1000");
    addFolder(kNames);
    links[kName] = "process-100/1.sock";
    sockets = {kName};
    for (const char* file : {"Info.plist", "Linux/CMIOExtensionSupport", "Frameworks/libPavoPlatform.so",
                             "Frameworks/PavoLoggingSupport.framework/PavoLoggingSupport"})
        addFile(bundlePath() + "/Contents/" + file, "content");
    addFile(bundlePath() + "/Contents/Resources/configure-pavo-full.png", "\x89PNG\r\n\x1a\n…");
    programs = {"pw-v4l2", "gst-launch-1.0"};
    addFile("/usr/lib/x86_64-linux-gnu/gstreamer-1.0/libgstpipewire.so", "content");
    addFile("/sys/class/video4linux/video0/name", "Integrated Camera\n");
    addFile("/etc/os-release", "NAME=Debian\nID=debian\n");
    addFile("/home/user/.mozilla/firefox/abc.default/prefs.js",
            "user_pref(\"media.webrtc.camera.allow-pipewire\", true);\n");
    links["/home/user/.mozilla/firefox/abc.default/lock"] = "127.0.1.1:+500";
    addProcess(kCamera, {"pavo", "camera"});
    addProcess(kProducer, {"pavo", "send"});
    addProcess(kClient, {"chromium", "--enable-features=Other,WebRtcPipeWireCamera"});
    addProcess(500, {"firefox-esr"});
    descriptors = {30, 1024};
    pipeWires[Examination::kDaemon] = {PipeWireAnswer::Kind::answered, {}, {"1.0.0", {}}};
    addCamera(Examination::kDaemon, 40);
    addObject(Examination::kDaemon, 31, "Client", {{"application.name", "WirePlumber"}});
    addObject(
        Examination::kDaemon, 50, "Node",
        {{"node.name", "viewer"}, {"media.class", "Stream/Input/Video"}, {"target.object", "pavo-camera"}});
    addObject(Examination::kDaemon, 60, "Link", {{"link.output.node", "40"}, {"link.input.node", "50"}});
}

void SystemDouble::addFolder(const std::string& path, uid_t owner, mode_t permissions_)
{
    files[path] = {FileStatus::Kind::folder, owner, permissions_};
}

void SystemDouble::addFile(const std::string& path, const std::string& content)
{
    files[path] = {FileStatus::Kind::file, kUser, 0644};
    contents[path] = content;
}

Process& SystemDouble::addProcess(pid_t pid, const std::vector<std::string>& arguments, uid_t owner)
{
    Process& added = running.emplace_back();
    added.pid = pid;
    added.owner = owner;
    const bool isCamera = arguments == std::vector<std::string>{"pavo", "camera"};
    added.program = isCamera ? "pavo-camera" : arguments.front();
    added.arguments = arguments;
    added.state = 'S';
    environments[pid] = {{"XDG_RUNTIME_DIR", "/run/user/" + std::to_string(owner)}};
    return added;
}

Process& SystemDouble::process(pid_t pid)
{
    return *std::find_if(running.begin(), running.end(),
                         [pid](const Process& each) { return each.pid == pid; });
}

void SystemDouble::endProcess(pid_t pid)
{
    std::erase_if(running, [pid](const Process& each) { return each.pid == pid; });
}

PipeWireGraph::Object& SystemDouble::addObject(const std::string& remote, std::uint32_t id,
                                               const std::string& type,
                                               std::map<std::string, std::string> properties)
{
    PipeWireAnswer& answer = pipeWires[remote];
    answer.kind = PipeWireAnswer::Kind::answered;
    return answer.graph.objects.emplace_back(PipeWireGraph::Object{id, type, std::move(properties), {}});
}

void SystemDouble::addCamera(const std::string& remote, std::uint32_t id)
{
    addObject(remote, id, "Node",
              {{"node.name", "pavo-camera"}, {"media.class", "Video/Source"}, {"object.serial", "1040"}});
}

void SystemDouble::removeObjects(const std::string& remote, const std::string& property,
                                 const std::string& value)
{
    std::erase_if(pipeWires[remote].graph.objects,
                  [&](const PipeWireGraph::Object& object) { return object.property(property) == value; });
}

void SystemDouble::makeEmbedded()
{
    pipeWires.clear();
    addCamera(Examination::kEmbedded, 7);
}

void SystemDouble::endCamera()
{
    endProcess(kCamera);
    status = tools::Problem{"nobody answers"};
    service = std::optional<UserService>();
    removeObjects(Examination::kDaemon, "node.name", "pavo-camera");
    removeObjects(Examination::kDaemon, "node.name", "viewer");
}

std::optional<std::string> SystemDouble::environment(const std::string& name) const
{
    const auto found = variables.find(name);
    return found == variables.end() ? std::nullopt : std::optional(found->second);
}

std::optional<FileStatus> SystemDouble::statusOf(const std::string& path) const
{
    const auto found = files.find(path);
    return found == files.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::string> SystemDouble::readFile(const std::string& path) const
{
    const auto found = contents.find(path);
    return found == contents.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::string> SystemDouble::readLink(const std::string& path) const
{
    const auto found = links.find(path);
    return found == links.end() ? std::nullopt : std::optional(found->second);
}

std::vector<std::string> SystemDouble::list(const std::string& folder) const
{
    const std::string start = folder.ends_with('/') ? folder : folder + "/";
    std::set<std::string> names;
    for (const auto& [path, status_] : files)
        if (path.starts_with(start))
            names.insert(path.substr(start.size(), path.find('/', start.size()) - start.size()));
    return {names.begin(), names.end()};
}

std::optional<std::map<std::string, std::string>> SystemDouble::environmentOf(pid_t pid) const
{
    const auto found = environments.find(pid);
    return found == environments.end() ? std::nullopt : std::optional(found->second);
}

PipeWireAnswer SystemDouble::pipeWire(const std::string& remote) const
{
    const auto found = pipeWires.find(remote);
    return found == pipeWires.end() ? PipeWireAnswer{PipeWireAnswer::Kind::absent, "Connection refused", {}}
                                    : found->second;
}

void SystemDouble::pause() const
{
    if (meanwhile) meanwhile();
}

}  // namespace pavo::test
