#include "Producer/CameraLink.h"

#include <utility>

namespace pavo::producer {
namespace {

// Ends a connection of which nothing is to be heard any more. The client that made it only lets go of those
// it loses, and a message to one that was interrupted would dial once more, past the client.
void retire(const std::shared_ptr<xpc::Connection>& connection)
{
    if (!connection) return;
    connection->setInvalidationHandler({});
    connection->setInterruptionHandler({});
    connection->invalidate();
}

}  // namespace

// What the camera calls on one connection. Runs on the connection's queue; the link's own queue does the
// rest.
class CameraLink::Receiver final : public VideoFrameProducerServiceReportReceiving {
public:
    Receiver(std::weak_ptr<CameraLink> link, std::uint64_t dialled)
        : link_(std::move(link)),
          dialled_(dialled)
    {}

    void subscribeToVideoFrames() override { forward({PAVO_EVENT_SUBSCRIBED, 0}); }
    void unsubscribeFromVideoFrames() override { forward({PAVO_EVENT_UNSUBSCRIBED, 0}); }
    void subconsumerSubscriptionWithPID(std::int32_t pid, bool isSubscribed) override
    {
        forward({isSubscribed ? PAVO_EVENT_WATCHER_ADDED : PAVO_EVENT_WATCHER_REMOVED, pid});
    }

private:
    void forward(const pavo_event& event)
    {
        if (const auto link = link_.lock())
            dispatch::async(link->queue_.get(),
                            [link, dialled = dialled_, event] { link->heard(dialled, event); });
    }

    const std::weak_ptr<CameraLink> link_;
    const std::uint64_t dialled_;
};

std::shared_ptr<CameraLink> CameraLink::create(std::string service, double framesPerSecond,
                                               EventHandler onEvent)
{
    return std::shared_ptr<CameraLink>(
        new CameraLink(std::move(service), framesPerSecond, std::move(onEvent)));
}

CameraLink::CameraLink(std::string service, double framesPerSecond, EventHandler onEvent)
    : service_(std::move(service)),
      onEvent_(std::move(onEvent)),
      framesPerSecond_(framesPerSecond)
{}

void CameraLink::start()
{
    const std::weak_ptr<CameraLink> weak = weak_from_this();
    const auto onQueue = [weak](void (CameraLink::*step)()) {
        if (const auto link = weak.lock())
            dispatch::async(link->queue_.get(), [link, step] { ((*link).*step)(); });
    };
    // A link that is gone dials no more, which ends the client.
    const auto client = Client::create(nullptr, [weak]() -> std::shared_ptr<xpc::Connection> {
        const auto link = weak.lock();
        return link ? link->dial() : nullptr;
    });
    client->setOnGainedConnection(
        [onQueue](const Client::RemoteObject&) { onQueue(&CameraLink::useCamera); });
    client->setOnLostConnection([onQueue] { onQueue(&CameraLink::lost); });
    {
        const std::lock_guard lock(mutex_);
        client_ = client;
    }
    client->start();
}

void CameraLink::stop()
{
    dispatch::sync(queue_.get(), [this] { onEvent_ = nullptr; });
    std::shared_ptr<xpc::Connection> connection;
    std::shared_ptr<Client> client;
    std::optional<Client::RemoteObject> camera;
    {
        const std::lock_guard lock(mutex_);
        isStopped_ = true;
        connection = connection_.lock();
        client.swap(client_);
        camera.swap(camera_);
    }
    retire(connection);
}

bool CameraLink::send(IOSurfaceRef surface, const CMSampleTimingInfo& timing)
{
    const std::lock_guard lock(mutex_);
    if (camera_) camera_->send<&VideoFrameConsumerService::didRecieveRawFrame>(surface, timing);
    return camera_.has_value();
}

void CameraLink::setRate(double framesPerSecond)
{
    const std::lock_guard lock(mutex_);
    framesPerSecond_ = framesPerSecond;
    if (camera_) camera_->send<&VideoFrameConsumerService::targetFPSChangedTo>(framesPerSecond);
}

std::shared_ptr<xpc::Connection> CameraLink::dial()
{
    const std::lock_guard lock(mutex_);
    if (isStopped_) return nullptr;
    retire(connection_.lock());
    auto connection = xpc::Connection::withMachServiceName(service_);
    connection_ = connection;
    client_->setLocalObject(std::make_shared<Receiver>(weak_from_this(), ++dialled_));
    return connection;
}

void CameraLink::useCamera()
{
    std::shared_ptr<Client> client;
    std::uint64_t dialled = 0;
    {
        const std::lock_guard lock(mutex_);
        client = client_;
        dialled = dialled_;
    }
    // Read here, where gains and losses come one after the other: what was gained may be lost by now.
    auto camera = client ? client->remoteObject() : std::nullopt;
    const std::lock_guard lock(mutex_);
    // Of a connection that was made meanwhile there is still to be heard.
    if (isStopped_ || dialled != dialled_) return;
    camera_ = std::move(camera);
    if (camera_ && std::exchange(announced_, dialled) != dialled)
        camera_->send<&VideoFrameConsumerService::targetFPSChangedTo>(framesPerSecond_);
}

void CameraLink::lost()
{
    ++lost_;
    bool isTheLatest = false;
    {
        const std::lock_guard lock(mutex_);
        isTheLatest = lost_ == dialled_;
        if (isTheLatest) {
            camera_.reset();
            retire(connection_.lock());
        }
    }
    if (connected_ != 0 && connected_ <= lost_) disconnect();
    if (isTheLatest && !std::exchange(hasSaidWaiting_, true)) report(PAVO_EVENT_WAITING);
}

void CameraLink::disconnect()
{
    connected_ = 0;
    report(PAVO_EVENT_LOST);
}

void CameraLink::heard(std::uint64_t dialled, const pavo_event& event)
{
    if (dialled <= lost_ || dialled < connected_) return;
    if (dialled != connected_) {
        // News of the new connection before those of the old one's end.
        if (connected_ != 0) disconnect();
        connected_ = dialled;
        hasSaidWaiting_ = false;
        // The news that it was gained may come later than its first message.
        useCamera();
        std::shared_ptr<xpc::Connection> connection;
        {
            const std::lock_guard lock(mutex_);
            connection = connection_.lock();
        }
        report(PAVO_EVENT_CONNECTED, connection ? connection->processIdentifier() : 0);
    }
    if (onEvent_) onEvent_(event);
}

void CameraLink::report(pavo_event_type type, std::int32_t pid)
{
    if (onEvent_) onEvent_({static_cast<std::uint32_t>(type), pid});
}

}  // namespace pavo::producer
