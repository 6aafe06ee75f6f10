#pragma once

#include "CMIOExtensionSupport/VideoFrameService.h"
#include "Platform/Support/Dispatch.h"
#include "Platform/XPC/XPCConnection.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace pavo::tools {

// What a producer hears.
struct LinkEvent {
    enum class Kind { waiting, connected, lost, subscribed, unsubscribed, watcherAdded, watcherRemoved };

    Kind kind;
    std::int32_t pid = 0;  // of the camera where it connected, of the watching process for watchers
};

// A producer's connection with the camera. Dials until the camera answers, and again when it is lost.
//
// Ownership: shared, because closures and the object that it exports lead back to it.
// Threads:   any. Events arrive one at a time on a queue of its own; they must not call back into it.
class CameraLink final : public std::enable_shared_from_this<CameraLink> {
public:
    static std::shared_ptr<CameraLink> create(double framesPerSecond,
                                              std::function<void(const LinkEvent&)> onEvent);

    void start();
    // No event comes after it has returned.
    void stop();

    // Connected, which is known from the camera's first message.
    bool isConnected() const { return isConnected_; }
    // Connected, and the camera wants frames.
    bool isWanted() const { return isSubscribed_; }
    // How many connections there have been. A new camera knows none of the surfaces that the one before had.
    std::uint64_t generation() const { return generation_; }
    // Does nothing without a connection.
    void send(IOSurfaceRef surface, const CMSampleTimingInfo& timing);

private:
    class Receiver;
    using Camera = xpc::Remote<VideoFrameConsumerService>;

    CameraLink(double framesPerSecond, std::function<void(const LinkEvent&)> onEvent);
    void dial();
    void connectionEnded(std::uint64_t dialled);
    void heard(std::uint64_t dialled, const LinkEvent& event);
    void report(const LinkEvent& event);

    const double framesPerSecond_;
    const dispatch::Queue queue_ = dispatch::Queue::serial("camera link");

    // Used on the queue only.
    std::function<void(const LinkEvent&)> onEvent_;
    std::shared_ptr<xpc::Connection> connection_;
    std::uint64_t dialled_ = 0;  // connections tried; by it what comes late from an old one is known
    bool hasSaidWaiting_ = false;

    std::atomic<bool> isConnected_ = false;
    std::atomic<bool> isSubscribed_ = false;
    std::atomic<std::uint64_t> generation_ = 0;

    std::mutex cameraMutex_;
    std::optional<Camera> camera_;
};

}  // namespace pavo::tools
