#include "Tools/CameraLink.h"

#include <utility>

namespace pavo::tools {
namespace {

constexpr std::int64_t kRedialAfterNs = 250'000'000;

}  // namespace

// What the camera calls. Runs on the connection's queue; the link's own queue does the rest.
class CameraLink::Receiver final : public VideoFrameProducerServiceReportReceiving {
public:
    Receiver(std::weak_ptr<CameraLink> link, std::uint64_t dialled)
        : link_(std::move(link)),
          dialled_(dialled)
    {}

    void subscribeToVideoFrames() override { forward({LinkEvent::Kind::subscribed}); }
    void unsubscribeFromVideoFrames() override { forward({LinkEvent::Kind::unsubscribed}); }
    void subconsumerSubscriptionWithPID(std::int32_t pid, bool isSubscribed) override
    {
        forward({isSubscribed ? LinkEvent::Kind::watcherAdded : LinkEvent::Kind::watcherRemoved, pid});
    }

private:
    void forward(const LinkEvent& event)
    {
        const auto link = link_.lock();
        if (!link) return;
        dispatch::async(link->queue_.get(),
                        [link, dialled = dialled_, event] { link->heard(dialled, event); });
    }

    const std::weak_ptr<CameraLink> link_;
    const std::uint64_t dialled_;
};

std::shared_ptr<CameraLink> CameraLink::create(double framesPerSecond,
                                               std::function<void(const LinkEvent&)> onEvent)
{
    return std::shared_ptr<CameraLink>(new CameraLink(framesPerSecond, std::move(onEvent)));
}

CameraLink::CameraLink(double framesPerSecond, std::function<void(const LinkEvent&)> onEvent)
    : framesPerSecond_(framesPerSecond),
      onEvent_(std::move(onEvent))
{}

void CameraLink::start()
{
    dispatch::async(queue_.get(), [self = shared_from_this()] { self->dial(); });
}

void CameraLink::stop()
{
    dispatch::sync(queue_.get(), [this] {
        onEvent_ = nullptr;
        ++dialled_;  // makes everything that is still under way late
        if (connection_) connection_->invalidate();
        connection_ = nullptr;
        isConnected_ = isSubscribed_ = false;
        const std::lock_guard lock(cameraMutex_);
        camera_.reset();
    });
}

void CameraLink::send(IOSurfaceRef surface, const CMSampleTimingInfo& timing)
{
    const std::lock_guard lock(cameraMutex_);
    if (camera_) camera_->send<&VideoFrameConsumerService::didRecieveRawFrame>(surface, timing);
}

void CameraLink::dial()
{
    if (!onEvent_) return;
    const std::uint64_t dialled = ++dialled_;
    const std::weak_ptr<CameraLink> weak = weak_from_this();
    const auto ended = [weak, dialled] {
        const auto self = weak.lock();
        if (self) dispatch::async(self->queue_.get(), [self, dialled] { self->connectionEnded(dialled); });
    };
    connection_ = xpc::Connection::withMachServiceName(kVideoFrameServiceName);
    connection_->setRemoteObjectInterface(xpc::describe<VideoFrameConsumerService>());
    connection_->setExportedInterface(xpc::describe<VideoFrameProducerServiceReportReceiving>());
    connection_->setExportedObject(xpc::exportObject<VideoFrameProducerServiceReportReceiving>(
        std::make_shared<Receiver>(weak, dialled)));
    // An interrupted connection would dial by itself, but only when something is sent. A new one asks at
    // once.
    connection_->setInterruptionHandler(ended);
    connection_->setInvalidationHandler(ended);
    connection_->resume();
    auto camera = Camera::cast(connection_->remoteObjectProxy());
    if (camera) camera->send<&VideoFrameConsumerService::targetFPSChangedTo>(framesPerSecond_);
    const std::lock_guard lock(cameraMutex_);
    camera_ = std::move(camera);
}

void CameraLink::connectionEnded(std::uint64_t dialled)
{
    if (dialled != dialled_) return;
    ++dialled_;
    {
        const std::lock_guard lock(cameraMutex_);
        camera_.reset();
    }
    connection_->invalidate();
    connection_ = nullptr;
    isSubscribed_ = false;
    if (isConnected_.exchange(false)) report({LinkEvent::Kind::lost});
    if (!std::exchange(hasSaidWaiting_, true)) report({LinkEvent::Kind::waiting});
    dispatch::after(dispatch_time(DISPATCH_TIME_NOW, kRedialAfterNs), queue_.get(),
                    [weak = weak_from_this()] {
                        if (const auto self = weak.lock()) self->dial();
                    });
}

void CameraLink::heard(std::uint64_t dialled, const LinkEvent& event)
{
    if (dialled != dialled_) return;
    if (!isConnected_.exchange(true)) {
        ++generation_;
        hasSaidWaiting_ = false;
        report({LinkEvent::Kind::connected, connection_->processIdentifier()});
    }
    if (event.kind == LinkEvent::Kind::subscribed) isSubscribed_ = true;
    if (event.kind == LinkEvent::Kind::unsubscribed) isSubscribed_ = false;
    report(event);
}

void CameraLink::report(const LinkEvent& event)
{
    if (onEvent_) onEvent_(event);
}

}  // namespace pavo::tools
