#pragma once

#include "CMIOExtensionSupport/BidirectionalXPCServiceServer.h"
#include "CMIOExtensionSupport/VideoFrameService.h"
#include "CMIOExtensionSupport/VideoFrameServiceClient.h"
#include "Platform/Support/Dispatch.h"
#include "Platform/Support/Ref.h"
#include "Tests/Doubles/CoreMediaIO/CoreMediaIODouble.h"
#include "Tests/Doubles/XPC/XPCDouble.h"
#include "Tests/Support/RecordingInterceptor.h"

#include <CoreMedia/CoreMedia.h>
#include <CoreVideo/CoreVideo.h>
#include <IOSurface/IOSurface.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What the camera's tests share: recorded logs and calls in one order, surfaces, and failures of C functions.
namespace pavo::test {

using FrameServer =
    BidirectionalXPCServiceServer<VideoFrameProducerServiceReportReceiving, VideoFrameConsumerService>;

// The camera's peer, as far as it hears subscriptions.
class SubscriptionCounter final : public VideoFrameProducerService {
public:
    void subscribeToVideoFrames() override { ++subscriptions; }
    void unsubscribeFromVideoFrames() override {}

    std::atomic<int> subscriptions = 0;
};

// Records log messages and the calls of the doubles of XPC and CoreMediaIO in one list, from its construction
// on. A message reads "log <type> <category>: <text>"; types are default, info and error.
class Journal final {
public:
    Journal();
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    std::vector<std::string> entries() const;
    // Only the messages.
    std::vector<std::string> logs() const;
    std::size_t count(std::string_view entry) const;
    void clear();

private:
    void add(const std::string& entry);
    void addNewMessages() const;

    RecordingInterceptor interceptor_;
    mutable std::mutex mutex_;
    mutable std::vector<std::string> entries_;
    mutable std::size_t messagesSeen_ = 0;
};

// The status that a C function answers instead of doing its work; none: it works.
struct Failures {
    std::optional<OSStatus> formatDescription;  // CMVideoFormatDescriptionCreateForImageBuffer
    std::optional<OSStatus> sampleBuffer;       // CMSampleBufferCreateReadyWithImageBuffer
    std::optional<CVReturn> wrapSurface;        // CVPixelBufferCreateWithIOSurface
    std::optional<CMTime> hostTime;             // CMClockGetTime
    std::optional<int> bootstrapParent;         // bootstrap_parent, which then leaves the port alone
    std::optional<int> bootstrapRegister;       // bootstrap_register
};
// Changed only while nothing runs that could call those functions.
Failures& failures();

// What bootstrap_register was called with, oldest first; nothing is really registered.
struct Registration {
    mach_port_t namespacePort;
    std::optional<std::string> name;
    mach_port_t port;
};
std::vector<Registration> takeRegistrations();
// The port that bootstrap_parent gives.
inline constexpr mach_port_t kParentPort = 4711;

// Quality of service of each attribute that was asked of dispatch since the last call.
std::vector<qos_class_t> takeQualitiesOfService();

// A surface whose byte at offset i is (i + seed) modulo 251. With `rowPadding` every row of every plane is
// that much longer than need be.
cf::Ref<IOSurfaceRef> makeSurface(std::int32_t width, std::int32_t height, OSType format,
                                  std::size_t rowPadding = 0, std::uint8_t seed = 1);
CMSampleTimingInfo makeTiming(std::int64_t frame);

// Waits until everything that was queued before has run.
void drain(dispatch_queue_t queue);

// Takes back what a test set in the doubles and failures, and forgets what they recorded.
void resetDoubles();

// Ends the circle of a connection and its client, which live for as long as the process otherwise.
template <typename Connection>
void breakCycle(Connection& connection)
{
    connection.setLocalObject(nullptr);
    connection.setOnGainedConnection(nullptr);
    connection.setOnLostConnection(nullptr);
}
// The same for every frame server that lives.
void breakServerCycles();

}  // namespace pavo::test
