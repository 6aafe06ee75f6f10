#pragma once

#include "Tools/Doctor/SessionBus.h"
#include "Tools/Doctor/System.h"
#include "Tools/ProgramPaths.h"

#include <utility>

namespace pavo::tools {

// The computer that the program runs on.
//
// Threads: for one thread.
class LinuxSystem final : public System {
public:
    // So that the whole is over within three seconds, whatever does not answer.
    static constexpr std::chrono::milliseconds kForEach{1000};
    static constexpr std::chrono::milliseconds kForAll{2300};

    explicit LinuxSystem(Patience patience = Patience(kForEach, kForAll),
                         std::string bundlePath = defaultBundlePath())
        : patience_(patience),
          bundlePath_(std::move(bundlePath))
    {}

    uid_t user() const override;
    std::string version() const override;
    std::string bundlePath() const override;
    std::optional<std::string> environment(const std::string& name) const override;
    std::optional<FileStatus> statusOf(const std::string& path) const override;
    bool isWritable(const std::string& path) const override;
    std::optional<std::string> readFile(const std::string& path) const override;
    std::optional<std::string> readLink(const std::string& path) const override;
    std::vector<std::string> list(const std::string& folder) const override;
    bool isInstalled(const std::string& program) const override;
    bool answers(const std::string& socket) const override;
    std::vector<Process> processes() const override;
    std::optional<std::map<std::string, std::string>> environmentOf(pid_t pid) const override;
    std::optional<DescriptorUse> descriptorsOf(pid_t pid) const override;
    PipeWireAnswer pipeWire(const std::string& remote) const override;
    std::string pipeWireLibraryVersion() const override;
    Result<CameraStatus> cameraStatus() const override;
    Result<std::optional<UserService>> cameraService() const override;
    Result<CameraPortal> cameraPortal() const override;
    Result<std::map<std::string, std::string>> cameraPermissions() const override;
    void pause() const override;

private:
    // The process whose folder in /proc this is, but for its number.
    std::optional<Process> processIn(const std::string& folder) const;

    const Patience patience_;
    const std::string bundlePath_;
    mutable SessionBus bus_{patience_};
};

}  // namespace pavo::tools
