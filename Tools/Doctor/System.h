#pragma once

#include "Tools/CameraStatus.h"
#include "Tools/Doctor/PipeWireGraph.h"
#include "Tools/Result.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace pavo::tools {

struct FileStatus {
    enum class Kind { file, folder, socket, other };
    Kind kind = Kind::other;
    uid_t owner = 0;
    mode_t permissions = 0;
};

struct Process {
    pid_t pid = 0;
    uid_t owner = 0;
    std::string program;                 // name of its file
    std::vector<std::string> arguments;  // the program's own name first
    char state = '?';                    // as in /proc/<pid>/status
    bool isReplaced = false;             // its file has been replaced or removed since
};

struct DescriptorUse {
    std::uint64_t open = 0;
    std::uint64_t limit = 0;
};

// The camera's unit in the user's systemd.
struct UserService {
    std::string fileState;    // "enabled", "disabled"…; empty: there is no such unit
    std::string activeState;  // "active", "failed"…
    std::string subState;     // "running", "failed"…
};

// What the desktop's portal says of cameras.
struct CameraPortal {
    bool isInstalled = false;  // runs, or would be started for who asks for it
    pid_t pid = 0;             // 0: does not run
    bool hasCameras = false;   // offers the camera interface at all
    bool seesCamera = false;   // and says that there is one
};

// How the examination sees the computer. Nothing here changes anything, and nothing takes long: what does not
// answer in time is reported as that.
class System {
public:
    System() = default;
    virtual ~System() = default;
    System(const System&) = delete;
    System& operator=(const System&) = delete;

    virtual uid_t user() const = 0;
    // Of this program, and the bundle that a camera of this program would load.
    virtual std::string version() const = 0;
    virtual std::string bundlePath() const = 0;
    virtual std::optional<std::string> environment(const std::string& name) const = 0;

    // Links are followed. None where there is nothing, or nothing that may be looked at.
    virtual std::optional<FileStatus> statusOf(const std::string& path) const = 0;
    virtual bool isWritable(const std::string& path) const = 0;
    // Of a plain file, its beginning.
    virtual std::optional<std::string> readFile(const std::string& path) const = 0;
    // Where a link leads.
    virtual std::optional<std::string> readLink(const std::string& path) const = 0;
    // Names in a folder, sorted.
    virtual std::vector<std::string> list(const std::string& folder) const = 0;
    virtual bool isInstalled(const std::string& program) const = 0;
    // Whether somebody takes connections on a Unix socket. Links are followed.
    virtual bool answers(const std::string& socket) const = 0;

    virtual std::vector<Process> processes() const = 0;
    // None where it may not be read.
    virtual std::optional<std::map<std::string, std::string>> environmentOf(pid_t pid) const = 0;
    virtual std::optional<DescriptorUse> descriptorsOf(pid_t pid) const = 0;

    // The PipeWire that a program with this PIPEWIRE_REMOTE would be connected to.
    virtual PipeWireAnswer pipeWire(const std::string& remote) const = 0;
    // Of the library that programs use here.
    virtual std::string pipeWireLibraryVersion() const = 0;
    virtual Result<CameraStatus> cameraStatus() const = 0;
    // None where no systemd looks after the user's session.
    virtual Result<std::optional<UserService>> cameraService() const = 0;
    virtual Result<CameraPortal> cameraPortal() const = 0;
    // By application ("" for all that are no Flatpaks): "yes", "no" or "ask".
    virtual Result<std::map<std::string, std::string>> cameraPermissions() const = 0;

    // Lets so much time pass between two looks at the same thing.
    virtual void pause() const = 0;
};

}  // namespace pavo::tools
