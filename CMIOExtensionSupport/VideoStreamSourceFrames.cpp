// How frames reach the stream: the producer's, and the placeholder while there are none.

#include "CMIOExtensionSupport/VideoFrameService.h"
#include "CMIOExtensionSupport/VideoStreamSource.h"
#include "CMIOExtensionSupport/VideoStreamSourceLogger.h"
#include "Platform/Support/Dispatch.h"
#include "Platform/Support/Fatal.h"
#include "Platform/Support/Ref.h"

#include <cmath>
#include <utility>

namespace pavo {

namespace {

std::uint64_t nanoseconds(CMTime time)
{
    const double value = CMTimeGetSeconds(time) * 1'000'000'000.0;
    require(std::isfinite(value) && value > -1.0 && value < 18446744073709551616.0,
            "The host time does not fit 64 bits of nanoseconds");
    return static_cast<std::uint64_t>(value);
}

}  // namespace

void VideoStreamSource::frameServiceDidReceiveFrame(CVPixelBufferRef pixelBuffer,
                                                    const CMSampleTimingInfo& timingInfo)
{
    dispatch_assert_queue(frameQueue());
    const bool wasGettingFrames = std::exchange(gettingFrames_, true);
    if (!wasGettingFrames) {
        reportExistingSubconsumers();
        defaultFrameTimer_->setIsRunning(streamingCounter_ != 0 && !gettingFrames_);
    }
    sendFrame(pixelBuffer, timingInfo);
}

void VideoStreamSource::frameServiceDidLoseConnection()
{
    dispatch::async(frameQueue(), [weakSelf = weak_from_this()] {
        if (const auto self = weakSelf.lock()) self->lostConnection();
    });
}

void VideoStreamSource::frameServiceTargetFPSChanged(double framesPerSecond)
{
    dispatch::async(frameQueue(), [weakSelf = weak_from_this(), framesPerSecond] {
        if (const auto self = weakSelf.lock()) self->changedFrameRate(framesPerSecond);
    });
}

// Nothing here depends on the description or the rate: frames ask for their description one by one.
void VideoStreamSource::streamBufferControllerDidUpdate(StreamBufferController&) {}

void VideoStreamSource::lostConnection()
{
    dispatch_assert_queue(frameQueue());
    videoStreamSourceLogger().info("Connection died. Swapping back to dead relay frame…");
    const bool wasGettingFrames = std::exchange(gettingFrames_, false);
    if (wasGettingFrames) defaultFrameTimer_->setIsRunning(streamingCounter_ != 0);
}

void VideoStreamSource::changedFrameRate(double framesPerSecond)
{
    dispatch_assert_queue(frameQueue());
    videoStreamSourceLogger().info("Frame rate changed to %{public}f", framesPerSecond);
    streamBufferController_.setFrameRate(framesPerSecond);
}

void VideoStreamSource::reportExistingSubconsumers()
{
    dispatch_assert_queue(frameQueue());
    const auto& stream = requireStream();
    videoStreamSourceLogger().log("Sending existing subconsumers (count = %{public}d) to producer",
                                  static_cast<std::int32_t>(stream->streamingClients().size()));
    for (const auto& client : stream->streamingClients())
        if (const auto producer = frameClient_->producer())
            producer->send<&VideoFrameProducerServiceReportReceiving::subconsumerSubscriptionWithPID>(
                client.pid, true);
}

// On the timer's queue. The frame queue decides whether the fire still counts: a producer's frame or a stop
// may be waiting there.
void VideoStreamSource::defaultFrameTimerFired()
{
    if (hasQueuedDefaultFrame_.exchange(true)) return;
    dispatch::async(frameQueue(), [weakSelf = weak_from_this()] {
        const auto self = weakSelf.lock();
        if (!self) return;
        self->hasQueuedDefaultFrame_ = false;
        if (self->defaultFrameTimer_->isRunning() && !self->gettingFrames_) self->sendDefaultFrame();
    });
}

void VideoStreamSource::sendDefaultFrame()
{
    dispatch_assert_queue(frameQueue());
    const auto frame = defaultFrameGenerator_.generateFrame(requireStreamFormat().formatDescription.get());
    if (!frame) return;
    sendFrame(frame.get(), std::nullopt);
}

void VideoStreamSource::sendFrame(CVPixelBufferRef pixelBuffer, const std::optional<CMSampleTimingInfo>&)
{
    dispatch_assert_queue(frameQueue());
    if (streamingCounter_ == 0) return;
    const auto format = streamBufferController_.formatDescriptionFor(pixelBuffer);
    if (!format) {
        videoStreamSourceLogger().error("Failed to get format description for frame :(");
        return;
    }
    const CMTime now = CMClockGetTime(CMClockGetHostTimeClock());
    const CMSampleTimingInfo timing = {CMTime{}, now, CMTime{}};
    cf::Ref<CMSampleBufferRef> sample;
    const OSStatus status = CMSampleBufferCreateReadyWithImageBuffer(kCFAllocatorDefault, pixelBuffer,
                                                                     format.get(), &timing, sample.receive());
    require(status == noErr && sample, "The sample buffer of a frame could not be created");
    const std::uint64_t hostTime = nanoseconds(now);
    requireStream()->sendSampleBuffer(sample.get(), cmio::ExtensionStreamDiscontinuityFlags::none, hostTime);
    streamBufferController_.incrementSequenceNumber();
}

}  // namespace pavo
