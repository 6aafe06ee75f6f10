#pragma once

#include "Platform/Support/Dispatch.h"
#include "Platform/XPC/XPCListener.h"
#include "Platform/XPC/linux/PeerLink.h"
#include "Platform/XPC/linux/XPCListenerEndpointLinux.h"

#include <deque>
#include <memory>
#include <mutex>

namespace xpc {

// What a listener is made of. A peer reaches the delegate when it has authenticated, not before: whoever only
// opens the socket cannot take the place of a producer that works.
struct Listener::Impl final : EventHandler, PeerLink::Observer {
    Impl();
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void resume();
    void invalidate();

    void handleEvents(std::uint32_t events) override;
    void linkDidAuthenticate(const std::shared_ptr<PeerLink>& link) override;
    void linkDidReceive(const std::shared_ptr<PeerLink>& link, IncomingMessage message) override;
    void linkDidReceiveReply(const std::shared_ptr<PeerLink>& link, IncomingReply reply) override;
    void linkWasLost(const std::shared_ptr<PeerLink>& link, PeerLink::Loss loss) override;
    const ProtocolDescription* interfaceForPeer() const override { return nullptr; }

    bool acceptPeer();
    void admit(pavo::UniqueFd socket);
    void backOff();
    bool forget(const std::shared_ptr<PeerLink>& link);
    void offer(const std::shared_ptr<PeerLink>& link);

    const dispatch::Queue queue;
    std::weak_ptr<Listener> owner;

    std::mutex mutex;
    std::shared_ptr<ListeningPort> port;
    std::weak_ptr<ListenerDelegate> delegate;
    IOThread::Token token = IOThread::kNoToken;
    bool isResumed = false;
    bool isInvalidated = false;
    bool isBackingOff = false;
    std::deque<std::shared_ptr<PeerLink>> unauthenticated;  // the oldest one first
    std::shared_ptr<Listener> self;                         // from resume to invalidation
};

}  // namespace xpc
