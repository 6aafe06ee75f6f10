#pragma once

#include "CMIOExtensionSupport/BidirectionalXPCServiceClient.h"
#include "CMIOExtensionSupport/VideoFrameService.h"

#include <pavo/producer.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace pavo::producer {

// A producer's link with the camera: makes one event after the other of what a connection that comes and goes
// says on several threads.
//
// That a camera is there is known from its first message, not from dialling. Connections are counted: each is
// lost once, and before the next one is made, so the number of losses tells whose news come late.
//
// Ownership: shared, because closures and the objects that it exports lead back to it, weakly.
// Threads:   any. Events arrive one at a time on a queue of its own, and must not call back.
class CameraLink final : public std::enable_shared_from_this<CameraLink> {
public:
    using EventHandler = std::function<void(const pavo_event&)>;

    // `service` is the name that the camera is found by.
    static std::shared_ptr<CameraLink> create(std::string service, double framesPerSecond,
                                              EventHandler onEvent);

    // Dials until stopped.
    void start();
    // No event comes after it has returned. Not from inside of one.
    void stop();

    // False where there is no camera.
    bool send(IOSurfaceRef surface, const CMSampleTimingInfo& timing);
    // Now, and on each connection to come.
    void setRate(double framesPerSecond);

private:
    class Receiver;
    using Client =
        BidirectionalXPCServiceClient<VideoFrameConsumerService, VideoFrameProducerServiceReportReceiving>;

    CameraLink(std::string service, double framesPerSecond, EventHandler onEvent);

    // On the client's queue.
    std::shared_ptr<xpc::Connection> dial();
    // On the link's queue.
    void useCamera();
    void lost();
    void heard(std::uint64_t dialled, const pavo_event& event);
    void report(pavo_event_type type, std::int32_t pid = 0);
    void disconnect();

    const std::string service_;
    const dispatch::Queue queue_ = dispatch::Queue::serial("com.tarnwell.macos.cam.producer.link");

    // On the queue only.
    EventHandler onEvent_;
    std::uint64_t lost_ = 0;       // how many connections were lost
    std::uint64_t connected_ = 0;  // which one a camera has answered on; 0: none
    bool hasSaidWaiting_ = false;

    std::mutex mutex_;
    std::shared_ptr<Client> client_;
    std::weak_ptr<xpc::Connection> connection_;
    std::uint64_t dialled_ = 0;    // how many connections were made
    std::uint64_t announced_ = 0;  // which one the rate was told on last
    bool isStopped_ = false;
    double framesPerSecond_;
    std::optional<Client::RemoteObject> camera_;
};

}  // namespace pavo::producer
