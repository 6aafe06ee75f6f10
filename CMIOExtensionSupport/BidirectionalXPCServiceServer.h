#pragma once

#include "CMIOExtensionSupport/BidirectionalXPCServicePeerConnection.h"
#include "Platform/Support/Synchronized.h"
#include "Platform/XPC/XPCListener.h"

#include <memory>
#include <optional>
#include <utility>

namespace pavo {

// The listening side of a two-way link. It has one peer at a time: the most recent connection wins, and the
// one that it replaces runs on, unused, until it fails. The server never dials; a lost peer has to come back.
//
// Ownership: keeps its listener, which knows it weakly.
// Threads:   connections are accepted on the listener's queue and lost on queues of their own. The closures
//            run there, onGainedConnection inside the acceptance. Everything else may be called from any
//            thread.
template <typename RemoteProtocol, typename LocalProtocol>
class BidirectionalXPCServiceServer final
    : public BidirectionalXPCServicePeerConnection<RemoteProtocol, LocalProtocol>,
      public xpc::ListenerDelegate,
      public std::enable_shared_from_this<BidirectionalXPCServiceServer<RemoteProtocol, LocalProtocol>> {
    using Contract = BidirectionalXPCServicePeerConnection<RemoteProtocol, LocalProtocol>;

public:
    using typename Contract::GainedConnectionHandler;
    using typename Contract::LostConnectionHandler;
    using typename Contract::RemoteObject;

    // Does not resume the listener; start does.
    static std::shared_ptr<BidirectionalXPCServiceServer>
    create(std::shared_ptr<xpc::Listener> xpcListener, std::shared_ptr<LocalProtocol> localObject = nullptr)
    {
        const std::shared_ptr<BidirectionalXPCServiceServer> server(
            new BidirectionalXPCServiceServer(std::move(xpcListener), std::move(localObject)));
        server->xpcListener_->setDelegate(server);
        return server;
    }

    void start() override
    {
        xpcListener_->resume();
        logger().log("Starting XPC listener!");
    }

    std::shared_ptr<LocalProtocol> localObject() const override { return localObject_.load(); }
    void setLocalObject(std::shared_ptr<LocalProtocol> localObject) override
    {
        localObject_.store(localObject);
        if (const auto connection = xpcConnection_.load())
            connection->setExportedObject(xpc::exportObject(std::move(localObject)));
    }

    std::optional<RemoteObject> remoteObject() const override
    {
        return remoteObjectOfPeerConnection<RemoteProtocol>(xpcConnection_.load());
    }

    GainedConnectionHandler onGainedConnection() const override { return onGainedConnection_.load(); }
    void setOnGainedConnection(GainedConnectionHandler handler) override
    {
        onGainedConnection_.store(std::move(handler));
    }
    LostConnectionHandler onLostConnection() const override { return onLostConnection_.load(); }
    void setOnLostConnection(LostConnectionHandler handler) override
    {
        onLostConnection_.store(std::move(handler));
    }

    bool listenerShouldAcceptNewConnection(xpc::Listener&,
                                           const std::shared_ptr<xpc::Connection>& newConnection) override
    {
        logger().log("Received XPC connection. Configuring…");
        // Strong on purpose: a connection keeps the server that configured it.
        configurePeerConnection<RemoteProtocol, LocalProtocol>(
            *newConnection, localObject(),
            [self = this->shared_from_this()](LogFormat message) { self->handleLoss(message); });
        logger().log("Now resuming XPC connection…");
        xpcConnection_.store(newConnection);
        newConnection->resume();
        if (const auto remote = remoteObject())
            if (const auto handler = onGainedConnection()) handler(*remote);
        return true;
    }

private:
    BidirectionalXPCServiceServer(std::shared_ptr<xpc::Listener> xpcListener,
                                  std::shared_ptr<LocalProtocol> localObject)
        : xpcListener_(std::move(xpcListener)),
          localObject_(std::move(localObject))
    {}

    static const Logger& logger()
    {
        static const Logger instance = Logger::plugin("BidirectionalXPCServiceServer");
        return instance;
    }

    // Whichever connection failed, the current one is forgotten: a peer that is replaced has gone already,
    // and one that is still there has to dial again to be sure of its link.
    void handleLoss(LogFormat message)
    {
        logger().error(message);
        xpcConnection_.store(nullptr);
        if (const auto handler = onLostConnection()) handler();
    }

    const std::shared_ptr<xpc::Listener> xpcListener_;
    Synchronized<std::shared_ptr<xpc::Connection>> xpcConnection_;
    Synchronized<std::shared_ptr<LocalProtocol>> localObject_;
    Synchronized<GainedConnectionHandler> onGainedConnection_;
    Synchronized<LostConnectionHandler> onLostConnection_;
};

}  // namespace pavo
