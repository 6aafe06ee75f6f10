#pragma once

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace pavo::test {

// A desktop session of its own for a test: message bus, PipeWire daemon and session manager in a private
// folder, which is the home and runtime folder of this process and of the children it starts. The environment
// is put back, and everything ended, when it is gone.
//
// Threads: the environment changes in the constructor and the destructor, so no other thread may run then.
class PipeWireSession {
public:
    // What one PipeWire object says about itself: the interface's short name, such as "Node", and properties.
    struct Object {
        unsigned id = 0;
        std::string type;
        std::map<std::string, std::string> properties;
        std::string state;
    };
    enum class Daemon { running, absent };

    // False, with the reason, where a program that a session consists of is not installed.
    static bool isAvailable(std::string* why);

    // Ready to link clients when it returns; isReady says whether that worked.
    explicit PipeWireSession(Daemon daemon = Daemon::running);
    ~PipeWireSession();
    PipeWireSession(const PipeWireSession&) = delete;
    PipeWireSession& operator=(const PipeWireSession&) = delete;

    bool isReady() const { return isReady_; }
    // The runtime folder (XDG_RUNTIME_DIR).
    const std::string& folder() const { return folder_.path(); }

    // Starts PipeWire and its session manager, again after killDaemon; true when they are ready.
    bool startDaemon() { return startPipeWire() && startSessionManager(); }
    bool startPipeWire();
    bool startSessionManager();
    // Kills both as a crash would.
    void killDaemon();

    // What pw-dump writes about the server: JSON, or nothing when it does not answer. `remote` as for
    // PIPEWIRE_REMOTE.
    static std::string dump(const std::string& remote = {});
    // All objects that the server has; none when it does not answer.
    static std::vector<Object> objects(const std::string& remote = {});
    // The node of that name, if there is one.
    static std::optional<Object> node(const std::string& name, const std::string& remote = {});

private:
    void setEnvironment(const char* name, const std::optional<std::string>& value);
    bool startBus();

    TemporaryFolder folder_;
    std::map<std::string, std::optional<std::string>> savedEnvironment_;
    ChildProcess bus_;
    ChildProcess pipeWire_;
    ChildProcess sessionManager_;
    bool isReady_ = false;
};

}  // namespace pavo::test
