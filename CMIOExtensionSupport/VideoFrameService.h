#pragma once

#include "Platform/XPC/XPCProtocol.h"

#include <CoreMedia/CoreMedia.h>
#include <IOSurface/IOSurface.h>

#include <cstdint>
#include <string_view>

// The frame service: what the producer application and the camera send each other. Both sides must use these
// protocol names and selectors letter for letter.
namespace pavo {

// The name under which the camera registers its listener, and which the producer dials.
inline constexpr std::string_view kVideoFrameServiceName = "com.tarnwell.macos.cam.avextension";
// A name that belongs to the same family; nothing in the bundle reads it.
inline constexpr std::string_view kXPCServiceName = "com.tarnwell.macos.cam.xpc";

// Sent by the producer to the camera.
class VideoFrameConsumerService {
public:
    // The surface is borrowed for the call. No pixel is copied on the way.
    virtual void didRecieveRawFrame(IOSurfaceRef surface, CMSampleTimingInfo timing) = 0;
    virtual void targetFPSChangedTo(double framesPerSecond) = 0;

protected:
    ~VideoFrameConsumerService() = default;
};

// Sent by the camera to the producer.
class VideoFrameProducerService {
public:
    virtual void subscribeToVideoFrames() = 0;
    virtual void unsubscribeFromVideoFrames() = 0;

protected:
    ~VideoFrameProducerService() = default;
};

// The producer that is also told which processes use the camera.
class VideoFrameProducerServiceReportReceiving : public VideoFrameProducerService {
public:
    virtual void subconsumerSubscriptionWithPID(std::int32_t pid, bool isSubscribed) = 0;

protected:
    ~VideoFrameProducerServiceReportReceiving() = default;
};

}  // namespace pavo

template <>
struct xpc::Protocol<pavo::VideoFrameConsumerService> {
    using Service = pavo::VideoFrameConsumerService;
    static constexpr std::string_view name = "CMIOExtensionSupport.VideoFrameConsumerService";
    using Adopts = xpc::Adopts<>;
    // "Recieve" is how the wire spells it.
    using Messages =
        xpc::Messages<xpc::Message<"didRecieveRawFrame:timingInfo:", &Service::didRecieveRawFrame>,
                      xpc::Message<"targetFPSChangedTo:", &Service::targetFPSChangedTo>>;
};

template <>
struct xpc::Protocol<pavo::VideoFrameProducerService> {
    using Service = pavo::VideoFrameProducerService;
    static constexpr std::string_view name = "CMIOExtensionSupport.VideoFrameProducerService";
    using Adopts = xpc::Adopts<>;
    using Messages =
        xpc::Messages<xpc::Message<"subscribeToVideoFrames", &Service::subscribeToVideoFrames>,
                      xpc::Message<"unsubscribeFromVideoFrames", &Service::unsubscribeFromVideoFrames>>;
};

template <>
struct xpc::Protocol<pavo::VideoFrameProducerServiceReportReceiving> {
    using Service = pavo::VideoFrameProducerServiceReportReceiving;
    static constexpr std::string_view name = "CMIOExtensionSupport.VideoFrameProducerServiceReportReceiving";
    using Adopts = xpc::Adopts<pavo::VideoFrameProducerService>;
    using Messages = xpc::Messages<xpc::Message<"subconsumerSubscriptionWithPID:isSubscribedChangedTo:",
                                                &Service::subconsumerSubscriptionWithPID>>;
};
