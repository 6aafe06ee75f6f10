#pragma once

#include "Platform/XPC/XPCConnection.h"
#include "Platform/XPC/XPCListenerEndpoint.h"

#include <memory>

namespace xpc {

class Listener;

class ListenerDelegate {
public:
    // Runs on the listener's own serial queue. The connection is not resumed yet: configure it, resume it and
    // return true. Returning false invalidates it.
    virtual bool listenerShouldAcceptNewConnection(Listener& listener,
                                                   const std::shared_ptr<Connection>& newConnection) = 0;

protected:
    ~ListenerDelegate() = default;
};

// Waits for peers that connect. Keeps its delegate weakly; a resumed listener keeps itself alive.
class Listener final : public std::enable_shared_from_this<Listener> {
public:
    struct Impl;

    // A listener without a name: reachable through its endpoint only.
    static std::shared_ptr<Listener> anonymousListener();
    explicit Listener(std::unique_ptr<Impl> impl);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    void setDelegate(std::weak_ptr<ListenerDelegate> delegate);
    // A new endpoint object on each call; may be asked for before resume.
    ListenerEndpoint endpoint();
    // Starts accepting. Peers that connected before wait until then.
    void resume();
    // Ends the listener; connections that it accepted live on.
    void invalidate();

    Impl& impl() { return *impl_; }

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace xpc
