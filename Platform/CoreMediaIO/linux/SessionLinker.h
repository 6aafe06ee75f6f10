#pragma once

#include "Platform/CoreMediaIO/linux/PipeWireLoop.h"

#include <list>
#include <memory>
#include <vector>

struct pw_context;
struct pw_global;
struct pw_impl_client;
struct pw_impl_node;
struct pw_impl_port;

namespace cmio {

struct SessionLinkerEvents;

// The part of a session manager that a camera needs: links clients that ask for a camera to it, and lets
// clients that come through a portal see it.
//
// Threads: everything with the loop's lock held.
class SessionLinker final {
public:
    // Watches the server in `context`, which outlives this.
    SessionLinker(PipeWireLoop& loop, pw_context* context);
    ~SessionLinker();
    SessionLinker(const SessionLinker&) = delete;
    SessionLinker& operator=(const SessionLinker&) = delete;

private:
    friend struct SessionLinkerEvents;
    struct WatchedClient;

    void added(pw_global* global);
    void removed(pw_global* global);
    void serve();
    pw_impl_port* outputFor(pw_impl_node* client) const;
    void admit(pw_impl_client* client) const;

    pw_context* context_;
    LoopTask serve_;
    std::unique_ptr<SessionLinkerEvents> events_;
    std::vector<pw_impl_port*> outputs_;  // of cameras
    std::vector<pw_impl_port*> inputs_;   // not looked at yet
    std::list<WatchedClient> clients_;
};

}  // namespace cmio
