#pragma once

#include "CMIOExtensionSupport/BidirectionalXPCServicePeerConnection.h"
#include "CMIOExtensionSupport/VideoFrameService.h"
#include "Platform/Support/Dispatch.h"
#include "Platform/Support/Ref.h"
#include "Platform/Support/Synchronized.h"

#include <CoreMedia/CoreMedia.h>
#include <CoreVideo/CoreVideo.h>

#include <atomic>
#include <memory>
#include <optional>

namespace pavo {

class PixelBufferPool;

// Told what the producer does.
class VideoFrameServiceClientDelegate {
public:
    // On the client's frame queue. The buffer is borrowed for the call.
    virtual void frameServiceDidReceiveFrame(CVPixelBufferRef pixelBuffer,
                                             const CMSampleTimingInfo& timingInfo) = 0;
    // On the thread that reports the loss.
    virtual void frameServiceDidLoseConnection() = 0;
    // On the connection's message thread.
    virtual void frameServiceTargetFPSChanged(double framesPerSecond) = 0;

protected:
    ~VideoFrameServiceClientDelegate() = default;
};

// The camera's end of the frame service: turns received surfaces into pixel buffers for its delegate, and
// tells the producer whether frames are wanted, again on every new connection.
//
// Ownership: keeps its connection, and is kept by it as its local object and by its closures. Whoever wants
//            both gone clears the connection's local object and closures. The delegate is weak.
// Threads:   messages arrive on the connection's thread, which only wraps the surface; frames reach the
//            delegate in order on frameQueue. Any thread may ask for the producer; requests come from one
//            thread.
// Errors:    a surface that cannot be wrapped is logged and dropped.
class VideoFrameServiceClient final : public VideoFrameConsumerService,
                                      public std::enable_shared_from_this<VideoFrameServiceClient> {
public:
    using Connection = BidirectionalXPCServicePeerConnection<VideoFrameProducerServiceReportReceiving,
                                                             VideoFrameConsumerService>;

    // Installs itself on the connection and starts it.
    static std::shared_ptr<VideoFrameServiceClient> create(std::shared_ptr<Connection> connection);
    ~VideoFrameServiceClient();

    void setDelegate(std::weak_ptr<VideoFrameServiceClientDelegate> delegate);

    bool requestFrames() const { return requestFrames_; }
    // Tells the producer, if there is one, on every call, also when the value stays the same.
    void setRequestFrames(bool requestFrames);
    void startRequestingFrames() { setRequestFrames(true); }
    void stopRequestingFrames() { setRequestFrames(false); }

    // The producer, if one is connected.
    std::optional<Connection::RemoteObject> producer() const { return connection_->remoteObject(); }

    // Serial. Frames reach the delegate here.
    dispatch_queue_t frameQueue() const { return frameQueue_.get(); }

    void didRecieveRawFrame(IOSurfaceRef surface, CMSampleTimingInfo timing) override;
    void targetFPSChangedTo(double framesPerSecond) override;

private:
    explicit VideoFrameServiceClient(std::shared_ptr<Connection> connection);

    void announceRequestFrames();
    cf::Ref<CVPixelBufferRef> copyFrameWorkaround(cf::Ref<CVPixelBufferRef> frame);

    const std::shared_ptr<Connection> connection_;
    std::atomic<bool> requestFrames_ = false;
    Synchronized<std::weak_ptr<VideoFrameServiceClientDelegate>> delegate_;
    std::unique_ptr<PixelBufferPool> zoomPixelBufferPool_;  // frame queue only
    const dispatch::Queue frameQueue_;
    const bool copiesFrames_;
};

}  // namespace pavo
