#pragma once

#include "CMIOExtensionSupport/VideoFrameService.h"
#include "Platform/XPC/XPCListener.h"
#include "Tests/Platform/XPC/RawPeer.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace pavo::test {

// A camera's end of the frame service that writes down what a producer sends.
class RecordingCamera final : public VideoFrameConsumerService, public xpc::ListenerDelegate {
public:
    struct Frame {
        cf::Ref<IOSurfaceRef> surface;
        CMSampleTimingInfo timing;
    };
    using Producer = xpc::Remote<VideoFrameProducerServiceReportReceiving>;

    static std::shared_ptr<RecordingCamera> create();

    void didRecieveRawFrame(IOSurfaceRef surface, CMSampleTimingInfo timing) override;
    void targetFPSChangedTo(double framesPerSecond) override;
    bool listenerShouldAcceptNewConnection(xpc::Listener& listener,
                                           const std::shared_ptr<xpc::Connection>& newConnection) override;

    std::vector<Frame> frames() const;
    std::vector<double> rates() const;
    // The last producer that connected.
    std::optional<Producer> producer() const;
    // Ends all connections.
    void hangUp();

private:
    RecordingCamera() = default;

    mutable std::mutex mutex_;
    std::weak_ptr<RecordingCamera> self_;
    std::vector<Frame> frames_;
    std::vector<double> rates_;
    std::vector<std::shared_ptr<xpc::Connection>> connections_;
};

// A camera that listens in a bootstrap namespace of the test's own, for producers that speak by hand.
class WireTest : public testing::Test {
protected:
    WireTest();
    void TearDown() override;

    RawPeer connect() const;
    // A producer that has authenticated and is known to the camera.
    RawPeer connectProducer() const;

    const std::shared_ptr<RecordingCamera> camera = RecordingCamera::create();
    const std::shared_ptr<xpc::Listener> listener;
};

// A surface as the document describes it, made without the framework: 64 × 48 pixels of '2vuy', all of
// `fill`.
UniqueFd makeSurfaceByHand(std::uint8_t fill);

}  // namespace pavo::test
