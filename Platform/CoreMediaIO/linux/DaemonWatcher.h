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

    // Watches, where it does not yet: the folder may not have been there before.
    void start();
    // Quick, for it is called when clients wait for the camera.
    void stop();

private:
    void read(int descriptor);

    pw_loop* loop_;
    const std::function<void()> onSocket_;
    std::string folder_;
    std::string socketName_;
    spa_source* source_ = nullptr;
    int watch_ = -1;
};

}  // namespace cmio
