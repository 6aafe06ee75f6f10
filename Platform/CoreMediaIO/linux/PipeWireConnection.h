#pragma once

#include "Platform/CoreMediaIO/linux/CameraReport.h"
#include "Platform/CoreMediaIO/linux/DaemonWatcher.h"
#include "Platform/CoreMediaIO/linux/EmbeddedServer.h"
#include "Platform/CoreMediaIO/linux/PipeWireLoop.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

struct pw_context;
struct pw_core;

namespace cmio {

struct CoreEvents;

// Keeps a connection to a PipeWire server: the session's daemon, or one of our own where there is none. Tries
// again and again while there is no server, and does nothing while there is one.
//
// Automatic means the daemon if it answers at the start, else our own server, but only until a daemon comes:
// then the camera belongs there, where everybody looks for it. Clients of our own server are not cut off for
// that; the camera moves when the last one has gone. Once it is in a daemon it stays: one that ends is waited
// for.
//
// Threads: everything with the loop's lock held; callbacks run on the loop.
class PipeWireConnection final {
public:
    enum class Server { automatic, daemon, embedded };
    struct Callbacks {
        std::function<void(pw_core*)> connected;
        // The core goes right after this: what hangs on it must go now.
        std::function<void()> lost;
    };

    // PAVO_PIPEWIRE: "daemon", "embedded", or else automatic.
    static Server serverFromEnvironment();

    // Connects soon.
    PipeWireConnection(PipeWireLoop& loop, Server server, Callbacks callbacks);
    // No callback is called any more; what hangs on the core is gone.
    ~PipeWireConnection();
    PipeWireConnection(const PipeWireConnection&) = delete;
    PipeWireConnection& operator=(const PipeWireConnection&) = delete;

    PipeWireState state() const;
    // Gives the connection up, soon, and makes a new one.
    void restart();
    // Whether the camera has clients.
    void setInUse(bool isInUse);

private:
    friend struct CoreEvents;

    void connect();
    pw_core* connectToDaemon();
    pw_core* connectToOurselves();
    void use(pw_core* core);
    void socketAppeared();
    void moveToDaemon();
    void serverHasGone();
    void lose();
    std::chrono::milliseconds nextDelay();
    void report(const std::string& problem);
    void disconnectCore();

    PipeWireLoop& loop_;
    const bool isAutomatic_;
    Server server_;
    const Callbacks callbacks_;
    LoopTask connect_;
    LoopTask lose_;
    LoopTask move_;
    DaemonWatcher watcher_;  // watches while we are without a daemon that we would take
    std::unique_ptr<CoreEvents> events_;
    pw_context* daemonContext_ = nullptr;
    std::unique_ptr<EmbeddedServer> embedded_;
    pw_core* core_ = nullptr;
    bool isInUse_ = false;
    bool isDaemonExpected_ = false;  // its socket has appeared
    int promptAttempts_ = 0;         // left
    std::string reportedProblem_;
};

}  // namespace cmio
