#include "Tests/Producer/CameraDouble.h"

#include <servers/bootstrap.h>

#include <algorithm>
#include <utility>

namespace pavo::test {

std::shared_ptr<CameraDouble> CameraDouble::create(const std::string& service, std::size_t keptSurfaces)
{
    std::shared_ptr<CameraDouble> camera(new CameraDouble(keptSurfaces));
    camera->listener_ = xpc::Listener::anonymousListener();
    const auto endpoint = camera->listener_->endpoint();
    name_t name{};
    std::copy_n(service.begin(), std::min(service.size(), sizeof name - 1), name);
    mach_port_t user = MACH_PORT_NULL;
    bootstrap_parent(bootstrap_port, &user);
    bootstrap_register(user, name, xpc::ListenerEndpoint::machPort(endpoint.object()));
    // The server keeps its local object, so this one must not be the last to hold the server.
    camera->server_ = Server::create(camera->listener_, camera);
    camera->server_->setOnGainedConnection(
        [weak = std::weak_ptr(camera)](const Server::RemoteObject& producer) {
            const auto self = weak.lock();
            if (!self) return;
            const std::lock_guard lock(self->mutex_);
            if (self->isSubscribed_)
                producer.send<&VideoFrameProducerService::subscribeToVideoFrames>();
            else
                producer.send<&VideoFrameProducerService::unsubscribeFromVideoFrames>();
        });
    camera->server_->start();
    return camera;
}

CameraDouble::~CameraDouble()
{
    dropLocked(0);
}

void CameraDouble::end()
{
    listener_->invalidate();
    server_->setLocalObject(nullptr);
    server_->setOnGainedConnection(nullptr);
    const std::lock_guard lock(mutex_);
    dropLocked(0);
}

void CameraDouble::setSubscribed(bool isSubscribed)
{
    const std::lock_guard lock(mutex_);
    isSubscribed_ = isSubscribed;
    const auto producer = server_->remoteObject();
    if (!producer) return;
    if (isSubscribed)
        producer->send<&VideoFrameProducerService::subscribeToVideoFrames>();
    else
        producer->send<&VideoFrameProducerService::unsubscribeFromVideoFrames>();
}

bool CameraDouble::reportWatcher(std::int32_t pid, bool isWatching)
{
    const auto producer = server_->remoteObject();
    if (producer)
        producer->send<&VideoFrameProducerServiceReportReceiving::subconsumerSubscriptionWithPID>(pid,
                                                                                                  isWatching);
    return producer.has_value();
}

std::uint64_t CameraDouble::frameCount() const
{
    const std::lock_guard lock(mutex_);
    return frameCount_;
}

std::optional<CameraDouble::Frame> CameraDouble::latestFrame() const
{
    const std::lock_guard lock(mutex_);
    return kept_.empty() ? std::nullopt : std::optional(kept_.back());
}

std::vector<double> CameraDouble::rates() const
{
    const std::lock_guard lock(mutex_);
    return rates_;
}

void CameraDouble::setKeepsAll(bool keepsAll)
{
    const std::lock_guard lock(mutex_);
    keepsAll_ = keepsAll;
    if (!keepsAll) dropLocked(0);
}

void CameraDouble::dropLocked(std::size_t rest)
{
    for (; kept_.size() > rest; kept_.pop_front())
        IOSurfaceDecrementUseCount(kept_.front().surface.get());
}

void CameraDouble::didRecieveRawFrame(IOSurfaceRef surface, CMSampleTimingInfo timing)
{
    const std::lock_guard lock(mutex_);
    IOSurfaceIncrementUseCount(surface);
    kept_.push_back({cf::retain(surface), timing});
    ++frameCount_;
    if (!keepsAll_) dropLocked(keptSurfaces_);
}

void CameraDouble::targetFPSChangedTo(double framesPerSecond)
{
    const std::lock_guard lock(mutex_);
    rates_.push_back(framesPerSecond);
}

}  // namespace pavo::test
