#pragma once

#include "Tools/Doctor/Doctor.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace pavo::test {

// A computer on paper. As it is made, all is well there: user 1000 has a session with PipeWire and
// WirePlumber, a camera (process 100), a producer (200), and a client (300).
class SystemDouble : public tools::System {
public:
    SystemDouble();

    static constexpr uid_t kUser = 1000;
    static constexpr pid_t kCamera = 100;
    static constexpr pid_t kProducer = 200;
    static constexpr pid_t kClient = 300;
    static constexpr const char* kNames = "/run/user/1000/pavo";
    static constexpr const char* kName = "/run/user/1000/pavo/com.tarnwell.macos.cam.avextension";

    void addFolder(const std::string& path, uid_t owner = kUser, mode_t permissions = 0700);
    void addFile(const std::string& path, const std::string& content);
    tools::Process& addProcess(pid_t pid, const std::vector<std::string>& arguments, uid_t owner = kUser);
    tools::Process& process(pid_t pid);
    void endProcess(pid_t pid);
    // Adds a camera to one of the PipeWires, which runs from then on.
    void addCamera(const std::string& remote, std::uint32_t id);
    tools::PipeWireGraph::Object& addObject(const std::string& remote, std::uint32_t id,
                                            const std::string& type,
                                            std::map<std::string, std::string> properties);
    // Takes all objects away whose property is this.
    void removeObjects(const std::string& remote, const std::string& property, const std::string& value);
    // The camera serves its clients itself, and there is no daemon.
    void makeEmbedded();
    void endCamera();

    uid_t user() const override { return userNumber; }
    std::string version() const override { return "1.2.3"; }
    std::string bundlePath() const override { return "/usr/lib/pavo.bundle"; }
    std::optional<std::string> environment(const std::string& name) const override;
    std::optional<tools::FileStatus> statusOf(const std::string& path) const override;
    bool isWritable(const std::string& path) const override { return !readOnly.contains(path); }
    std::optional<std::string> readFile(const std::string& path) const override;
    std::optional<std::string> readLink(const std::string& path) const override;
    std::vector<std::string> list(const std::string& folder) const override;
    bool isInstalled(const std::string& program) const override { return programs.contains(program); }
    bool answers(const std::string& socket) const override { return sockets.contains(socket); }
    std::vector<tools::Process> processes() const override { return running; }
    std::optional<std::map<std::string, std::string>> environmentOf(pid_t pid) const override;
    std::optional<tools::DescriptorUse> descriptorsOf(pid_t) const override { return descriptors; }
    tools::PipeWireAnswer pipeWire(const std::string& remote) const override;
    std::string pipeWireLibraryVersion() const override { return libraryVersion; }
    tools::Result<tools::CameraStatus> cameraStatus() const override { return status; }
    tools::Result<std::optional<tools::UserService>> cameraService() const override { return service; }
    tools::Result<tools::CameraPortal> cameraPortal() const override { return portal; }
    tools::Result<std::map<std::string, std::string>> cameraPermissions() const override
    {
        return permissions;
    }
    void pause() const override;

    uid_t userNumber = kUser;
    std::map<std::string, std::string> variables;
    std::map<std::string, tools::FileStatus> files;
    std::map<std::string, std::string> contents;
    std::map<std::string, std::string> links;
    std::set<std::string> readOnly;
    std::set<std::string> programs;
    std::set<std::string> sockets;
    std::vector<tools::Process> running;
    std::map<pid_t, std::map<std::string, std::string>> environments;
    std::optional<tools::DescriptorUse> descriptors;
    std::map<std::string, tools::PipeWireAnswer> pipeWires;
    std::string libraryVersion = "1.0.0";
    tools::Result<tools::CameraStatus> status;
    tools::Result<std::optional<tools::UserService>> service;
    tools::Result<tools::CameraPortal> portal;
    tools::Result<std::map<std::string, std::string>> permissions;
    // What happens during a pause.
    std::function<void()> meanwhile;
};

}  // namespace pavo::test
