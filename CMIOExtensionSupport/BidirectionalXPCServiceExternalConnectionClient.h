#pragma once

#include "CMIOExtensionSupport/BidirectionalXPCServicePeerConnection.h"
#include "Platform/Support/Synchronized.h"

#include <memory>
#include <optional>
#include <utility>

namespace pavo {

// A two-way link over a connection that somebody else made, which this only configures and resumes. It
// neither listens nor dials; whoever is told of a loss may hand in another connection.
//
// Ownership: keeps its connection, a dead one too: messages to that one go nowhere. Kept by every connection
//            that it configured.
// Threads:   connect and the setters act on the caller's thread, and onGainedConnection runs there, too.
//            Losses are reported on the lost connection's own queue.
template <typename RemoteProtocol, typename LocalProtocol>
class BidirectionalXPCServiceExternalConnectionClient final
    : public BidirectionalXPCServicePeerConnection<RemoteProtocol, LocalProtocol>,
      public std::enable_shared_from_this<
          BidirectionalXPCServiceExternalConnectionClient<RemoteProtocol, LocalProtocol>> {
    using Contract = BidirectionalXPCServicePeerConnection<RemoteProtocol, LocalProtocol>;

public:
    using typename Contract::GainedConnectionHandler;
    using typename Contract::LostConnectionHandler;
    using typename Contract::RemoteObject;

    static std::shared_ptr<BidirectionalXPCServiceExternalConnectionClient>
    create(std::shared_ptr<LocalProtocol> localObject)
    {
        return std::shared_ptr<BidirectionalXPCServiceExternalConnectionClient>(
            new BidirectionalXPCServiceExternalConnectionClient(std::move(localObject)));
    }

    // Nothing is to be started: connect does all.
    void start() override {}

    // Takes a connection that is not resumed yet, and resumes it. The one before is let go of, not ended; its
    // later loss is reported all the same.
    void connect(std::shared_ptr<xpc::Connection> connection)
    {
        xpcConnection_.store(connection);
        configurePeerConnection<RemoteProtocol, LocalProtocol>(
            *connection, localObject(),
            [self = this->shared_from_this()](LogFormat message) { self->handleLoss(message); });
        logger().log("Now attempting to resume externally-provided XPC connection…");
        connection->resume();
        if (const auto remote = remoteObject())
            if (const auto handler = onGainedConnection()) handler(*remote);
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

private:
    explicit BidirectionalXPCServiceExternalConnectionClient(std::shared_ptr<LocalProtocol> localObject)
        : localObject_(std::move(localObject))
    {}

    static const Logger& logger()
    {
        static const Logger instance = Logger::plugin("BidirectionalXPCServiceExternalConnectionClient");
        return instance;
    }

    void handleLoss(LogFormat message) const
    {
        logger().error(message);
        if (const auto handler = onLostConnection()) handler();
    }

    Synchronized<std::shared_ptr<xpc::Connection>> xpcConnection_;
    Synchronized<std::shared_ptr<LocalProtocol>> localObject_;
    Synchronized<GainedConnectionHandler> onGainedConnection_;
    Synchronized<LostConnectionHandler> onLostConnection_;
};

}  // namespace pavo
