#pragma once

#include "Platform/XPC/XPCListener.h"
#include "Tools/CameraStatus.h"
#include "Tools/Result.h"

#include <memory>
#include <string>

namespace pavo::tools {

// Answers those who ask how this process's camera is. Between questions it does nothing.
//
// Ownership: keeps its listener.
// Threads:   made and started on the main thread; questions are answered on the queues of their connections.
// Errors:    the name that cannot be had is a problem in one sentence.
class StatusService final {
public:
    // Takes the name that only one camera of a user can have. Starts no thread yet: questions wait for start.
    static Result<std::shared_ptr<StatusService>> create(const std::string& version);
    StatusService(std::shared_ptr<xpc::Listener> listener, const std::string& version);
    // Gives the name back.
    ~StatusService();
    StatusService(const StatusService&) = delete;
    StatusService& operator=(const StatusService&) = delete;

    void start();

private:
    class Delegate;

    const std::shared_ptr<xpc::Listener> listener_;
    const std::shared_ptr<Delegate> delegate_;
};

}  // namespace pavo::tools
