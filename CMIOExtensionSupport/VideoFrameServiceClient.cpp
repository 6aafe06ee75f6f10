#include "CMIOExtensionSupport/VideoFrameServiceClient.h"

#include "CMIOExtensionSupport/PixelBufferPool.h"
#include "PavoLoggingSupport/Logger.h"
#include "Platform/Foundation/NSBundle.h"
#include "Platform/Foundation/NSProcessInfo.h"
#include "Platform/Support/Fatal.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace pavo {

namespace {

const Logger& logger()
{
    static const Logger instance = Logger::plugin("VideoFrameServiceClient");
    return instance;
}

// One host application, on one release of the system, cannot use buffers that wrap another process's surface.
bool hostNeedsCopiedFrames()
{
    const auto identifier = ns::Bundle::mainBundle().bundleIdentifier();
    if (!identifier || !identifier->starts_with("us.zoom.")) return false;
    const auto version = ns::ProcessInfo::operatingSystemVersion();
    return version.majorVersion == 10 && version.minorVersion == 14;
}

// Copies the source's rows at their full length, padding included. What would fall behind the end of the
// target's plane is left out: the strides are the sender's word, the memory is ours.
void copyPlane(CVPixelBufferRef source, CVPixelBufferRef target, std::size_t plane)
{
    const auto* from = static_cast<const std::byte*>(CVPixelBufferGetBaseAddressOfPlane(source, plane));
    auto* to = static_cast<std::byte*>(CVPixelBufferGetBaseAddressOfPlane(target, plane));
    if (!from || !to) return;
    const auto rows = CVPixelBufferGetHeightOfPlane(source, plane);
    const auto rowBytes = CVPixelBufferGetBytesPerRowOfPlane(source, plane);
    const auto targetRowBytes = CVPixelBufferGetBytesPerRowOfPlane(target, plane);
    const auto targetBytes = targetRowBytes * CVPixelBufferGetHeightOfPlane(target, plane);
    for (std::size_t row = 0; row < rows && row * targetRowBytes < targetBytes; ++row) {
        const auto offset = row * targetRowBytes;
        std::memcpy(to + offset, from + row * rowBytes, std::min(rowBytes, targetBytes - offset));
    }
}

}  // namespace

std::shared_ptr<VideoFrameServiceClient>
VideoFrameServiceClient::create(std::shared_ptr<Connection> connection)
{
    const std::shared_ptr<VideoFrameServiceClient> client(new VideoFrameServiceClient(std::move(connection)));
    client->connection_->setLocalObject(client);
    // Both closures keep the client: it serves the connection for as long as that can report anything.
    client->connection_->setOnGainedConnection(
        [client](const Connection::RemoteObject&) { client->announceRequestFrames(); });
    client->connection_->setOnLostConnection([client] {
        if (const auto delegate = client->delegate_.load().lock()) delegate->frameServiceDidLoseConnection();
    });
    client->connection_->start();
    return client;
}

VideoFrameServiceClient::VideoFrameServiceClient(std::shared_ptr<Connection> connection)
    : connection_(std::move(connection)),
      frameQueue_(
          dispatch::Queue::serial("com.tarnwell.macos.dal.stream.frame-queue", QOS_CLASS_USER_INTERACTIVE)),
      copiesFrames_(hostNeedsCopiedFrames())
{}

VideoFrameServiceClient::~VideoFrameServiceClient() = default;

void VideoFrameServiceClient::setDelegate(std::weak_ptr<VideoFrameServiceClientDelegate> delegate)
{
    delegate_.store(std::move(delegate));
}

void VideoFrameServiceClient::setRequestFrames(bool requestFrames)
{
    requestFrames_ = requestFrames;
    announceRequestFrames();
}

// A connection may be gained while the value changes on another thread. The message that was sent last must
// then be the one for the value that stayed, so what was sent is compared with what is wanted now.
void VideoFrameServiceClient::announceRequestFrames()
{
    bool announced = false;
    do {
        announced = requestFrames_;
        const auto remote = connection_->remoteObject();
        if (!remote) return;
        if (announced)
            remote->send<&VideoFrameProducerService::subscribeToVideoFrames>();
        else
            remote->send<&VideoFrameProducerService::unsubscribeFromVideoFrames>();
    } while (announced != requestFrames_);
}

void VideoFrameServiceClient::didRecieveRawFrame(IOSurfaceRef surface, CMSampleTimingInfo timing)
{
    cf::Ref<CVPixelBufferRef> wrapped;
    // The buffer says whether it worked; the status adds nothing that could be acted on.
    CVPixelBufferCreateWithIOSurface(kCFAllocatorDefault, surface, nullptr, wrapped.receive());
    if (!wrapped) {
        logger().error("Failed to get pixel buffer from IOSurface");
        return;
    }
    dispatch::async(frameQueue(), [self = shared_from_this(), frame = std::move(wrapped), timing]() mutable {
        frame = self->copyFrameWorkaround(std::move(frame));
        if (const auto delegate = self->delegate_.load().lock())
            delegate->frameServiceDidReceiveFrame(frame.get(), timing);
    });
}

void VideoFrameServiceClient::targetFPSChangedTo(double framesPerSecond)
{
    logger().info("Target FPS changed to %{public}f", framesPerSecond);
    if (const auto delegate = delegate_.load().lock())
        delegate->frameServiceTargetFPSChanged(framesPerSecond);
}

cf::Ref<CVPixelBufferRef> VideoFrameServiceClient::copyFrameWorkaround(cf::Ref<CVPixelBufferRef> frame)
{
    dispatch_assert_queue(frameQueue());
    if (!copiesFrames_) return frame;

    cf::Ref<CMFormatDescriptionRef> format;
    CMVideoFormatDescriptionCreateForImageBuffer(kCFAllocatorDefault, frame.get(), format.receive());
    if (!zoomPixelBufferPool_) {
        require(bool(format), "There is no format description for the frame to copy");
        zoomPixelBufferPool_ = std::make_unique<PixelBufferPool>(format);
    }
    if (!format) return frame;
    auto copy = zoomPixelBufferPool_->pixelBuffer(format.get());
    if (!copy) return frame;

    CVPixelBufferLockBaseAddress(frame.get(), kCVPixelBufferLock_ReadOnly);
    CVPixelBufferLockBaseAddress(copy.get(), 0);
    // A buffer without planes counts as one plane that has no address: it is replaced without being copied.
    const auto planes = std::max<std::size_t>(CVPixelBufferGetPlaneCount(frame.get()), 1);
    for (std::size_t plane = 0; plane < planes; ++plane)
        copyPlane(frame.get(), copy.get(), plane);
    CVPixelBufferUnlockBaseAddress(copy.get(), 0);
    CVPixelBufferUnlockBaseAddress(frame.get(), kCVPixelBufferLock_ReadOnly);
    return copy;
}

}  // namespace pavo
