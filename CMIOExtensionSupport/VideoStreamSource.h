#pragma once

#include "CMIOExtensionSupport/BasicDefaultFrameGenerator.h"
#include "CMIOExtensionSupport/RepeatingTimer.h"
#include "CMIOExtensionSupport/StreamBufferHelper.h"
#include "CMIOExtensionSupport/VideoFrameServiceClient.h"
#include "Platform/CoreMediaIO/CMIOExtensionStream.h"
#include "Platform/XPC/XPCListener.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace pavo {

// The one stream of the camera. While clients stream it sends them the producer's frames, or, as long as no
// producer sends any, the placeholder frame from a timer; and it tells the producer who the clients are.
//
// Ownership: owned by the device source. Keeps everything below it; all delegates and closures that lead back
//            here are weak.
// Threads:   everything that counts or sends runs on the frame client's frame queue. The framework's threads,
//            the timer and the producer's connection hop to it: start and stop wait until they are counted,
//            all others go on at once. Nothing on that queue waits for a peer: the first start turns to the
//            privileged helper on its own thread, between its two hops.
// Errors:    a frame that cannot be described is logged and dropped. Everything else that could fail here is
//            a programming error.
class VideoStreamSource final : public cmio::ExtensionStreamSource,
                                public StreamBufferControllerDelegate,
                                public VideoFrameServiceClientDelegate,
                                public std::enable_shared_from_this<VideoStreamSource> {
public:
    // Builds the stream and registers the listener on which producers connect.
    static std::shared_ptr<VideoStreamSource> create();

    const std::shared_ptr<cmio::ExtensionStream>& stream() const { return stream_; }
    const std::shared_ptr<VideoFrameServiceClient>& frameClient() const { return frameClient_; }

    std::vector<cmio::ExtensionStreamFormat> formats() const override;
    cmio::ExtensionPropertySet availableProperties() const override;
    std::optional<cmio::ExtensionStreamProperties>
    streamProperties(const cmio::ExtensionPropertySet& properties, ns::Error* error) override;
    bool setStreamProperties(const cmio::ExtensionStreamProperties& properties, ns::Error* error) override;
    bool authorizedToStartStream(const cmio::ExtensionClient& client) override;
    bool startStream(ns::Error* error) override;
    bool stopStream(ns::Error* error) override;

    void frameServiceDidReceiveFrame(CVPixelBufferRef pixelBuffer,
                                     const CMSampleTimingInfo& timingInfo) override;
    void frameServiceDidLoseConnection() override;
    void frameServiceTargetFPSChanged(double framesPerSecond) override;

    void streamBufferControllerDidUpdate(StreamBufferController& controller) override;

private:
    friend struct VideoStreamSourceTestAccess;
    using ClientsChange = cmio::ExtensionStream::ClientsChange;

    VideoStreamSource();

    // Construction, once there is a shared owner that delegates can refer to.
    void connectParts();
    dispatch_queue_t frameQueue() const { return frameClient_->frameQueue(); }
    const cmio::ExtensionStreamFormat& requireStreamFormat() const;
    const std::shared_ptr<cmio::ExtensionStream>& requireStream() const;

    // True where this start is the first one, which turns to the helper before it is counted.
    bool announceStart();
    void countStart(bool isFirst);
    void countStop();
    void observedClientsChange(const ClientsChange& change);
    void updateClientPIDs(std::set<std::int32_t> newPIDs);

    void defaultFrameTimerFired();
    void sendDefaultFrame();
    // Sends one frame to the stream's clients, stamped with the time of sending, whatever timing it came
    // with.
    void sendFrame(CVPixelBufferRef pixelBuffer, const std::optional<CMSampleTimingInfo>& timingInfo);
    void reportExistingSubconsumers();
    void lostConnection();
    void changedFrameRate(double framesPerSecond);

    std::shared_ptr<cmio::ExtensionStream> stream_;
    std::optional<cmio::ExtensionStreamFormat> streamFormat_;
    BasicDefaultFrameGenerator defaultFrameGenerator_;
    StreamBufferController streamBufferController_;
    std::shared_ptr<RepeatingTimer> defaultFrameTimer_;
    std::uint32_t streamingCounter_ = 0;
    bool isLaunching_ = false;  // a first start is not counted yet
    ns::KeyValueObservation clientsObservation_;
    std::set<std::int32_t> currentClientPIDs_;
    std::shared_ptr<xpc::Listener> xpcListener_;
    bool gettingFrames_ = false;
    std::shared_ptr<VideoFrameServiceClient> frameClient_;
    // A fire of the timer waits on the frame queue. Further ones add nothing, and must not pile up there.
    std::atomic<bool> hasQueuedDefaultFrame_ = false;
};

}  // namespace pavo
