#pragma once

#include "Platform/CoreMediaIO/linux/PipeWireLoop.h"

#include <functional>
#include <string>

struct spa_source;

namespace cmio {

// Tells when the socket of the session's PipeWire daemon appears. It costs nothing until then.
//
// Threads: everything with the loop's lock held; the callback runs on the loop.
// Errors:  a folder that cannot be watched is as one in which nothing appears.
class DaemonWatcher final {
public:
    // `onSocket`: there is a new socket. The daemon behind it may need a moment before it answers.
    DaemonWatcher(PipeWireLoop& loop, std::function<void()> onSocket);
    ~DaemonWatcher();
    DaemonWatcher(const DaemonWatcher&) = delete;
    DaemonWatcher& operator=(const DaemonWatcher&) = delete;

    bool isWatching() const { return source_ != nullptr; }

private:
    void read(int descriptor);

    pw_loop* loop_;
    const std::function<void()> onSocket_;
    std::string socketName_;
    spa_source* source_ = nullptr;
};

}  // namespace cmio
