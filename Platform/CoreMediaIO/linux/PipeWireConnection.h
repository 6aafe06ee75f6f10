#pragma once

#include "Platform/CoreMediaIO/linux/CameraReport.h"
#include "Platform/CoreMediaIO/linux/EmbeddedServer.h"
#include "Platform/CoreMediaIO/linux/PipeWireLoop.h"

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

    // Connects soon. Automatic means the daemon if it answers now, else our own server.
    PipeWireConnection(PipeWireLoop& loop, Server server, Callbacks callbacks);
    // No callback is called any more; what hangs on the core is gone.
    ~PipeWireConnection();
    PipeWireConnection(const PipeWireConnection&) = delete;
    PipeWireConnection& operator=(const PipeWireConnection&) = delete;

    PipeWireState state() const;
    // Gives the connection up, soon, and makes a new one.
    void restart();

private:
    friend struct CoreEvents;

    void connect();
    void connectToDaemon();
    void connectToOurselves();
    void lose();
    void report(const std::string& problem);
    void disconnectCore();

    PipeWireLoop& loop_;
    Server server_;
    const Callbacks callbacks_;
    LoopTask connect_;
    LoopTask lose_;
    std::unique_ptr<CoreEvents> events_;
    pw_context* daemonContext_ = nullptr;
    std::unique_ptr<EmbeddedServer> embedded_;
    pw_core* core_ = nullptr;
    std::string reportedProblem_;
};

}  // namespace cmio
