#pragma once

#include "CMIOExtensionSupport/BidirectionalXPCServicePeerConnection.h"
#include "Platform/Support/Dispatch.h"
#include "Platform/Support/Synchronized.h"

#include <dispatch/dispatch.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace pavo {

// The dialling side of a two-way link, which never gives up: it drops a lost connection and dials again half
// a second later, for as long as it lives. That pause is fixed, so a peer that comes back is met within it.
//
// Ownership: kept by its connection and by whatever waits on its queue, the next attempt included, so a
//            client whose peer is missing is never freed. An owner that wants its end makes the constructor
//            closure return null: the attempt under way is then the last one, until start is called again.
// Threads:   everything that changes a connection runs on one serial queue. The closures run on the global
//            queue of default quality of service, several at once where events follow each other closely;
//            they may read remoteObject, which code on the serial queue must not. The local object and the
//            closures are set before start.
// Errors:    a peer that is not there is reported as gained, right after dialling, and then as lost.
template <typename RemoteProtocol, typename LocalProtocol>
class BidirectionalXPCServiceClient final
    : public BidirectionalXPCServicePeerConnection<RemoteProtocol, LocalProtocol>,
      public std::enable_shared_from_this<BidirectionalXPCServiceClient<RemoteProtocol, LocalProtocol>> {
    using Contract = BidirectionalXPCServicePeerConnection<RemoteProtocol, LocalProtocol>;

public:
    using typename Contract::GainedConnectionHandler;
    using typename Contract::LostConnectionHandler;
    using typename Contract::RemoteObject;
    // Makes a new connection that is not resumed. Called on the serial queue.
    using ConnectionConstructor = std::function<std::shared_ptr<xpc::Connection>()>;

    static constexpr const char* kQueueLabel = "com.tarnwell.macos.cam.queue.BidirectionalXPCServiceClient";
    static constexpr std::int64_t kReconnectionDelayNanoseconds = 500'000'000;

    // Does not connect; start does.
    static std::shared_ptr<BidirectionalXPCServiceClient>
    create(std::shared_ptr<LocalProtocol> localObject, ConnectionConstructor connectionConstructorBlock)
    {
        return std::shared_ptr<BidirectionalXPCServiceClient>(
            new BidirectionalXPCServiceClient(std::move(localObject), std::move(connectionConstructorBlock)));
    }

    void start() override
    {
        dispatch::async(queue_.get(), [self = this->shared_from_this()] { self->connectIfNeeded(); });
    }

    std::shared_ptr<LocalProtocol> localObject() const override { return localObject_.load(); }
    // A live connection exports the new object shortly after, not before this returns.
    void setLocalObject(std::shared_ptr<LocalProtocol> localObject) override
    {
        localObject_.store(std::move(localObject));
        dispatch::async(queue_.get(), [self = this->shared_from_this()] {
            if (self->xpcConnection_)
                self->xpcConnection_->setExportedObject(xpc::exportObject(self->localObject()));
        });
    }

    std::optional<RemoteObject> remoteObject() const override
    {
        std::optional<RemoteObject> remote;
        dispatch::sync(queue_.get(), [this, &remote] {
            remote = remoteObjectOfPeerConnection<RemoteProtocol>(xpcConnection_);
        });
        return remote;
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
    BidirectionalXPCServiceClient(std::shared_ptr<LocalProtocol> localObject,
                                  ConnectionConstructor connectionConstructorBlock)
        : connectionConstructorBlock_(std::move(connectionConstructorBlock)),
          localObject_(std::move(localObject))
    {}

    static const Logger& logger()
    {
        static const Logger instance = Logger::plugin("BidirectionalXPCServiceClient");
        return instance;
    }

    // These three run on the queue only.
    void connectIfNeeded();
    void handleConnectionLoss();
    void scheduleReconnection();
    // On the global queue.
    void reportGained() const
    {
        if (const auto remote = remoteObject())
            if (const auto handler = onGainedConnection()) handler(*remote);
    }
    void reportLost() const
    {
        if (const auto handler = onLostConnection()) handler();
    }

    const dispatch::Queue queue_ = dispatch::Queue::serial(kQueueLabel);
    const ConnectionConstructor connectionConstructorBlock_;
    std::shared_ptr<xpc::Connection> xpcConnection_;  // queue only
    bool hasQueuedReconnectionAttempt_ = false;       // queue only
    Synchronized<std::shared_ptr<LocalProtocol>> localObject_;
    Synchronized<GainedConnectionHandler> onGainedConnection_;
    Synchronized<LostConnectionHandler> onLostConnection_;
};

template <typename RemoteProtocol, typename LocalProtocol>
void BidirectionalXPCServiceClient<RemoteProtocol, LocalProtocol>::connectIfNeeded()
{
    if (xpcConnection_) return;
    logger().log("Initiating XPC connection…");
    xpcConnection_ = connectionConstructorBlock_();
    if (!xpcConnection_) return;
    // The handlers run on the connection's own queue and leave everything, the log too, to ours.
    configurePeerConnection<RemoteProtocol, LocalProtocol>(
        *xpcConnection_, localObject(), [self = this->shared_from_this()](LogFormat message) {
            dispatch::async(self->queue_.get(), [self, message] {
                logger().error(message);
                self->handleConnectionLoss();
            });
        });
    logger().log("Now attempting outbound XPC connection…");
    xpcConnection_->resume();
    // Not here: a closure may read remoteObject, which waits for this queue.
    dispatch::async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0),
                    [self = this->shared_from_this()] { self->reportGained(); });
}

template <typename RemoteProtocol, typename LocalProtocol>
void BidirectionalXPCServiceClient<RemoteProtocol, LocalProtocol>::handleConnectionLoss()
{
    // The same connection may report both of its ends.
    if (!xpcConnection_) return;
    logger().info("Destroying XPC connection and scheduling reconnection attempt…");
    xpcConnection_ = nullptr;
    scheduleReconnection();
    dispatch::async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0),
                    [self = this->shared_from_this()] { self->reportLost(); });
}

template <typename RemoteProtocol, typename LocalProtocol>
void BidirectionalXPCServiceClient<RemoteProtocol, LocalProtocol>::scheduleReconnection()
{
    if (hasQueuedReconnectionAttempt_) return;
    hasQueuedReconnectionAttempt_ = true;
    dispatch::after(dispatch_time(DISPATCH_TIME_NOW, kReconnectionDelayNanoseconds), queue_.get(),
                    [self = this->shared_from_this()] {
                        self->hasQueuedReconnectionAttempt_ = false;
                        self->connectIfNeeded();
                    });
}

}  // namespace pavo
