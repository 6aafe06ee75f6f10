#pragma once

#include "PavoLoggingSupport/Logger.h"
#include "Platform/XPC/XPCConnection.h"

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace pavo {

// A two-way link with one peer, whichever side dialled. Each side exports an object of its `LocalProtocol`
// and sends messages to the other's, of its `RemoteProtocol`; both are services with an xpc::Protocol.
//
// Ownership: keeps the local object and both closures. A connection that it configured keeps it in turn.
// Threads:   each implementation says on which thread its closures run; never count on the main thread.
// Errors:    none reach the caller. Messages to a peer that is gone or does not answer are dropped.
template <typename RemoteProtocol, typename LocalProtocol>
class BidirectionalXPCServicePeerConnection {
public:
    using RemoteObject = xpc::Remote<RemoteProtocol>;
    using GainedConnectionHandler = std::function<void(const RemoteObject&)>;
    using LostConnectionHandler = std::function<void()>;

    virtual void start() = 0;

    // What the peer may send messages to. May be set at any time; a live connection exports the new one.
    virtual std::shared_ptr<LocalProtocol> localObject() const = 0;
    virtual void setLocalObject(std::shared_ptr<LocalProtocol> localObject) = 0;

    // The peer's object, fetched anew on every call; none without a connection or with a peer that does not
    // conform. Messages on it never block.
    virtual std::optional<RemoteObject> remoteObject() const = 0;

    // Run each time a connection was configured and resumed.
    virtual GainedConnectionHandler onGainedConnection() const = 0;
    virtual void setOnGainedConnection(GainedConnectionHandler handler) = 0;

    // Run each time a connection was reported invalidated or interrupted.
    virtual LostConnectionHandler onLostConnection() const = 0;
    virtual void setOnLostConnection(LostConnectionHandler handler) = 0;

protected:
    ~BidirectionalXPCServicePeerConnection() = default;
};

// Prepares a connection for resuming, in the one order that all implementations share. `handleLoss` gets the
// text to log, on the connection's own queue. It keeps the owner alive, so that an owner lives at least as
// long as a connection that it configured.
template <typename RemoteProtocol, typename LocalProtocol>
void configurePeerConnection(xpc::Connection& connection, std::shared_ptr<LocalProtocol> localObject,
                             const std::function<void(LogFormat)>& handleLoss)
{
    connection.setRemoteObjectInterface(xpc::describe<RemoteProtocol>());
    connection.setExportedInterface(xpc::describe<LocalProtocol>());
    connection.setExportedObject(xpc::exportObject(std::move(localObject)));
    connection.setInvalidationHandler([handleLoss] { handleLoss("The XPC connection was invalidated"); });
    connection.setInterruptionHandler([handleLoss] { handleLoss("The XPC connection was interrupted"); });
}

// The object at the far end of `connection`, which may be null.
template <typename RemoteProtocol>
std::optional<xpc::Remote<RemoteProtocol>>
remoteObjectOfPeerConnection(const std::shared_ptr<xpc::Connection>& connection)
{
    if (!connection) return std::nullopt;
    return xpc::Remote<RemoteProtocol>::cast(connection->remoteObjectProxy());
}

}  // namespace pavo
