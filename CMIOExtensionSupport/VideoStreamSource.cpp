#include "CMIOExtensionSupport/VideoStreamSource.h"

#include "CMIOExtensionSupport/BidirectionalXPCServiceServer.h"
#include "CMIOExtensionSupport/BosunCommunicator.h"
#include "CMIOExtensionSupport/FrameRate.h"
#include "CMIOExtensionSupport/MachServiceRegistration.h"
#include "CMIOExtensionSupport/VideoFrameService.h"
#include "CMIOExtensionSupport/VideoStreamSourceLogger.h"
#include "Platform/Foundation/NSUUID.h"
#include "Platform/Support/Dispatch.h"
#include "Platform/Support/Fatal.h"
#include "Platform/Support/Ref.h"

#include <limits>
#include <string>
#include <string_view>
#include <utility>

namespace pavo {

namespace {

constexpr std::string_view kStreamName = "Pavo Camera";
constexpr double kDefaultFrameInterval = 1.0 / 60.0;

using FrameServer =
    BidirectionalXPCServiceServer<VideoFrameProducerServiceReportReceiving, VideoFrameConsumerService>;

void registerListener(xpc::Listener& listener)
{
    const auto name = cf::adopt(CFStringCreateWithBytes(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(kVideoFrameServiceName.data()),
        static_cast<CFIndex>(kVideoFrameServiceName.size()), kCFStringEncodingUTF8, false));
    const auto endpoint = listener.endpoint();
    dynamically_register_mach_service_for_endpoint_on_parent(endpoint.object(), name.get());
}

cmio::ExtensionStreamFormat makeStreamFormat(const StreamBufferController& controller)
{
    const double frameRate = controller.frameRate();
    const CMTime duration = CMTimeMakeWithSeconds(1.0 / frameRate, timescaleForFrameRate(frameRate));
    return {controller.formatDescription(), duration, duration, {}};
}

// A missing or broken helper is no reason not to stream: its errors are discarded.
void launchStudio()
{
    static_cast<void>(BosunCommunicator::perform(false, [](const BosunCommunicator::Remote& helper) {
        helper.send<&BosunServiceProtocol::launchStudioIfNeeded>();
    }));
}

}  // namespace

std::shared_ptr<VideoStreamSource> VideoStreamSource::create()
{
    const std::shared_ptr<VideoStreamSource> source(new VideoStreamSource);
    // A producer may have connected already. On the frame queue nothing of it is seen half-way.
    dispatch::sync(source->frameQueue(), [&source] { source->connectParts(); });
    return source;
}

VideoStreamSource::VideoStreamSource()
    : defaultFrameTimer_(RepeatingTimer::create(kDefaultFrameInterval)),
      xpcListener_(xpc::Listener::anonymousListener())
{
    registerListener(*xpcListener_);
    frameClient_ = VideoFrameServiceClient::create(FrameServer::create(xpcListener_));
    streamFormat_ = makeStreamFormat(streamBufferController_);
}

void VideoStreamSource::connectParts()
{
    frameClient_->setDelegate(weak_from_this());
    streamBufferController_.setDelegate(weak_from_this());
    defaultFrameTimer_->setEventHandler([weakSelf = weak_from_this()] {
        if (const auto self = weakSelf.lock()) self->defaultFrameTimerFired();
    });
    stream_ =
        cmio::ExtensionStream::create(kStreamName, ns::UUID::random(), cmio::ExtensionStreamDirection::source,
                                      cmio::ExtensionStreamClockType::hostTime, weak_from_this());
    clientsObservation_ =
        stream_->observeStreamingClients([weakSelf = weak_from_this()](const ClientsChange& change) {
            if (const auto self = weakSelf.lock()) self->observedClientsChange(change);
        });
}

std::vector<cmio::ExtensionStreamFormat> VideoStreamSource::formats() const
{
    return {requireStreamFormat()};
}

cmio::ExtensionPropertySet VideoStreamSource::availableProperties() const
{
    return {std::string(cmio::CMIOExtensionPropertyStreamActiveFormatIndex),
            std::string(cmio::CMIOExtensionPropertyStreamFrameDuration)};
}

std::optional<cmio::ExtensionStreamProperties>
VideoStreamSource::streamProperties(const cmio::ExtensionPropertySet& properties, ns::Error*)
{
    cmio::ExtensionStreamProperties answer(cmio::ExtensionProperties::Dictionary{});
    if (properties.contains(cmio::CMIOExtensionPropertyStreamActiveFormatIndex))
        answer.setActiveFormatIndex(0);
    if (properties.contains(cmio::CMIOExtensionPropertyStreamFrameDuration))
        answer.setFrameDuration(requireStreamFormat().maxFrameDuration);
    return answer;
}

bool VideoStreamSource::setStreamProperties(const cmio::ExtensionStreamProperties&, ns::Error*)
{
    return true;
}

bool VideoStreamSource::authorizedToStartStream(const cmio::ExtensionClient&)
{
    return true;
}

bool VideoStreamSource::startStream(ns::Error*)
{
    // Two hops, with the helper between them: it must not hold up the frames.
    bool isFirst = false;
    dispatch::sync(frameQueue(), [this, &isFirst] { isFirst = announceStart(); });
    if (isFirst) launchStudio();
    dispatch::sync(frameQueue(), [this, isFirst] { countStart(isFirst); });
    return true;
}

bool VideoStreamSource::stopStream(ns::Error*)
{
    dispatch::sync(frameQueue(), [this] { countStop(); });
    return true;
}

const cmio::ExtensionStreamFormat& VideoStreamSource::requireStreamFormat() const
{
    require(streamFormat_.has_value(), "The stream source has no stream format");
    return *streamFormat_;
}

const std::shared_ptr<cmio::ExtensionStream>& VideoStreamSource::requireStream() const
{
    require(stream_ != nullptr, "The stream source has no stream");
    return stream_;
}

bool VideoStreamSource::announceStart()
{
    dispatch_assert_queue(frameQueue());
    if (streamingCounter_ > 0 || isLaunching_) return false;
    isLaunching_ = true;
    videoStreamSourceLogger().log("Starting stream! Yay :)");
    return true;
}

void VideoStreamSource::countStart(bool isFirst)
{
    dispatch_assert_queue(frameQueue());
    if (isFirst) isLaunching_ = false;
    if (streamingCounter_ == 0) {
        streamBufferController_.reset();
        frameClient_->startRequestingFrames();
    }
    require(streamingCounter_ < std::numeric_limits<std::uint32_t>::max(),
            "The stream was started too often");
    ++streamingCounter_;
    defaultFrameTimer_->setIsRunning(!gettingFrames_);
}

void VideoStreamSource::countStop()
{
    dispatch_assert_queue(frameQueue());
    require(streamingCounter_ > 0, "The stream was stopped without having been started");
    --streamingCounter_;
    if (streamingCounter_ > 0) {
        defaultFrameTimer_->setIsRunning(!gettingFrames_);
        return;
    }
    videoStreamSourceLogger().log("Stopping stream! Bye :'(");
    frameClient_->stopRequestingFrames();
    defaultFrameTimer_->setIsRunning(false);
}

void VideoStreamSource::observedClientsChange(const ClientsChange& change)
{
    require(change.newValue.has_value(), "The streaming clients changed to nothing");
    std::set<std::int32_t> newPIDs;
    for (const auto& client : *change.newValue)
        newPIDs.insert(client.pid);
    // Not waited for: the thread that changes the clients may hold what the frame queue needs.
    dispatch::async(frameQueue(), [weakSelf = weak_from_this(), newPIDs = std::move(newPIDs)]() mutable {
        if (const auto self = weakSelf.lock()) self->updateClientPIDs(std::move(newPIDs));
    });
}

void VideoStreamSource::updateClientPIDs(std::set<std::int32_t> newPIDs)
{
    dispatch_assert_queue(frameQueue());
    auto changedPIDs = newPIDs;
    for (const auto pid : currentClientPIDs_)
        if (changedPIDs.erase(pid) == 0) changedPIDs.insert(pid);
    for (const auto pid : changedPIDs) {
        const bool isAdded = newPIDs.contains(pid);
        if (const auto producer = frameClient_->producer())
            producer->send<&VideoFrameProducerServiceReportReceiving::subconsumerSubscriptionWithPID>(
                pid, isAdded);
        videoStreamSourceLogger().log(
            "Subconsumer state changed: %{public}d was %{public}@, reporting to producer", pid,
            isAdded ? "added" : "removed");
    }
    currentClientPIDs_ = std::move(newPIDs);
}

}  // namespace pavo
