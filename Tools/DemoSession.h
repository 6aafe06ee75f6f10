#pragma once

#include "Tools/ChildProcess.h"
#include "Tools/Result.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace pavo::tools {

enum class SessionKind {
    automatic,  // the running one, else a private one, else an embedded one
    running,    // the PipeWire daemon of the user
    isolated,   // a daemon and a session manager of our own
    embedded    // no daemon: the camera serves its clients itself
};

// The PipeWire that a demo takes place on, and a folder for everything else that it needs. Ends what it
// started, and removes the folder.
class DemoSession final {
public:
    using Environment = std::vector<std::pair<std::string, std::string>>;

    static Result<std::unique_ptr<DemoSession>> start(SessionKind kind);
    ~DemoSession();
    DemoSession(const DemoSession&) = delete;
    DemoSession& operator=(const DemoSession&) = delete;

    SessionKind kind() const { return kind_; }
    const std::string& folder() const { return folder_; }
    // What the camera, its producers and its clients are to be started with.
    const Environment& environment() const { return environment_; }

private:
    DemoSession(SessionKind kind, std::string folder);
    bool startIsolated();

    const SessionKind kind_;
    const std::string folder_;
    Environment environment_;
    std::vector<ChildProcess> daemons_;  // in the order in which they were started
};

}  // namespace pavo::tools
