#include "CMIOExtensionSupport/VideoFrameServiceClient.h"
#include "Tests/CMIOExtensionSupport/CameraTestSupport.h"
#include "Tests/Doubles/Foundation/FoundationDouble.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <type_traits>

namespace pavo {
namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;
using xpc::test::Peer;

static_assert(!std::is_default_constructible_v<VideoFrameServiceClient>, "a client needs its connection");

// Records what the client tells it.
class Delegate final : public VideoFrameServiceClientDelegate {
public:
    struct Frame {
        cf::Ref<CVPixelBufferRef> buffer;
        CMSampleTimingInfo timing;
    };

    explicit Delegate(dispatch_queue_t frameQueue) : frameQueue_(frameQueue) {}

    void frameServiceDidReceiveFrame(CVPixelBufferRef buffer, const CMSampleTimingInfo& timing) override
    {
        dispatch_assert_queue(frameQueue_);
        frames.push_back({cf::retain(buffer), timing});
    }
    void frameServiceDidLoseConnection() override { losses.push_back(std::this_thread::get_id()); }
    void frameServiceTargetFPSChanged(double rate) override
    {
        rates.push_back(rate);
        rateThreads.push_back(std::this_thread::get_id());
    }

    std::vector<Frame> frames;  // read after the queue was drained
    std::vector<std::thread::id> losses;
    std::vector<double> rates;
    std::vector<std::thread::id> rateThreads;

private:
    dispatch_queue_t frameQueue_;
};

class VideoFrameServiceClientTest : public testing::Test {
protected:
    VideoFrameServiceClientTest()
    {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        client->setDelegate(delegate);
    }
    ~VideoFrameServiceClientTest() override
    {
        breakCycle(*server);
        resetDoubles();
    }

    // A client that lives in that process, on that system, in place of the other.
    void moveTo(const std::optional<std::string>& identifier, const ns::OperatingSystemVersion& version)
    {
        setMainBundleIdentifier(identifier);
        setOperatingSystemVersion(version);
        breakCycle(*server);
        listener = xpc::Listener::anonymousListener();
        server = FrameServer::create(listener);
        client = VideoFrameServiceClient::create(server);
        delegate = std::make_shared<Delegate>(client->frameQueue());
        client->setDelegate(delegate);
    }

    std::shared_ptr<Peer> connect() const { return Peer::connect(*listener); }
    void sendFrame(const Peer& producer, const cf::Ref<IOSurfaceRef>& surface, std::int64_t number = 0) const
    {
        const bool isTaken =
            producer.send<VideoFrameConsumerService, &VideoFrameConsumerService::didRecieveRawFrame>(
                surface.get(), makeTiming(number));
        EXPECT_TRUE(isTaken);
        drain(client->frameQueue());
    }
    void sendRate(const Peer& producer, double rate) const
    {
        producer.send<VideoFrameConsumerService, &VideoFrameConsumerService::targetFPSChangedTo>(rate);
    }

    std::shared_ptr<xpc::Listener> listener = xpc::Listener::anonymousListener();
    std::shared_ptr<FrameServer> server = FrameServer::create(listener);
    std::shared_ptr<VideoFrameServiceClient> client = VideoFrameServiceClient::create(server);
    std::shared_ptr<Delegate> delegate = std::make_shared<Delegate>(client->frameQueue());
};

using VideoFrameServiceClientDeathTest = VideoFrameServiceClientTest;

// The rows of one plane, each with the buffer's whole stride cut to `rowBytes`.
std::vector<std::uint8_t> planeBytes(CVPixelBufferRef buffer, std::size_t plane, std::size_t rowBytes)
{
    CVPixelBufferLockBaseAddress(buffer, kCVPixelBufferLock_ReadOnly);
    const auto* base = static_cast<const std::uint8_t*>(CVPixelBufferGetBaseAddressOfPlane(buffer, plane));
    std::vector<std::uint8_t> bytes;
    for (std::size_t row = 0; row < CVPixelBufferGetHeightOfPlane(buffer, plane); ++row) {
        const auto* start = base + row * CVPixelBufferGetBytesPerRowOfPlane(buffer, plane);
        bytes.insert(bytes.end(), start, start + rowBytes);
    }
    CVPixelBufferUnlockBaseAddress(buffer, kCVPixelBufferLock_ReadOnly);
    return bytes;
}

std::vector<std::uint8_t> surfacePlaneBytes(IOSurfaceRef surface, std::size_t plane, std::size_t rowBytes)
{
    const auto* base = static_cast<const std::uint8_t*>(IOSurfaceGetBaseAddressOfPlane(surface, plane));
    std::vector<std::uint8_t> bytes;
    for (std::size_t row = 0; row < IOSurfaceGetHeightOfPlane(surface, plane); ++row) {
        const auto* start = base + row * IOSurfaceGetBytesPerRowOfPlane(surface, plane);
        bytes.insert(bytes.end(), start, start + rowBytes);
    }
    return bytes;
}

constexpr ns::OperatingSystemVersion kMojave = {10, 14, 6};

TEST_F(VideoFrameServiceClientTest, InstallsItselfOnTheConnectionAndStartsIt)
{
    EXPECT_EQ(server->localObject(), client);
    EXPECT_TRUE(server->onGainedConnection());
    EXPECT_TRUE(server->onLostConnection());
    EXPECT_TRUE(xpc::test::isResumed(*listener));
}

TEST_F(VideoFrameServiceClientTest, BothClosuresKeepTheClient)
{
    server->setLocalObject(nullptr);
    const std::weak_ptr<VideoFrameServiceClient> weakClient = client;
    client.reset();
    server->setOnGainedConnection(nullptr);
    EXPECT_FALSE(weakClient.expired());
    server->setOnLostConnection(nullptr);
    EXPECT_TRUE(weakClient.expired());
}

TEST_F(VideoFrameServiceClientTest, HasASerialUserInteractiveFrameQueueWithItsLabel)
{
    takeQualitiesOfService();
    const auto otherServer = FrameServer::create(xpc::Listener::anonymousListener());
    const auto other = VideoFrameServiceClient::create(otherServer);

    EXPECT_THAT(takeQualitiesOfService(), ElementsAre(QOS_CLASS_USER_INTERACTIVE));
    EXPECT_STREQ(dispatch_queue_get_label(other->frameQueue()), "com.tarnwell.macos.dal.stream.frame-queue");
    breakCycle(*otherServer);
}

TEST_F(VideoFrameServiceClientTest, DoesNotWantFramesAtFirst)
{
    EXPECT_FALSE(client->requestFrames());
}

TEST_F(VideoFrameServiceClientTest, AProducerThatConnectsWhileNoFramesAreWantedIsToldSoAtOnce)
{
    EXPECT_THAT(connect()->sentSelectors(), ElementsAre("unsubscribeFromVideoFrames"));
}

TEST_F(VideoFrameServiceClientTest, AProducerThatConnectsWhileFramesAreWantedIsToldSoAtOnce)
{
    client->startRequestingFrames();
    EXPECT_THAT(connect()->sentSelectors(), ElementsAre("subscribeToVideoFrames"));
}

TEST_F(VideoFrameServiceClientTest, TheProxyForTheAnnouncementIsReadAgain)
{
    const auto producer = connect();
    const auto calls = producer->calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "remoteObjectProxy"), 2);
}

TEST_F(VideoFrameServiceClientTest, RequestingFramesTwiceSendsTwoSubscriptions)
{
    const auto producer = connect();
    client->setRequestFrames(true);
    client->setRequestFrames(true);

    EXPECT_THAT(producer->sentSelectors(), ElementsAre("unsubscribeFromVideoFrames", "subscribeToVideoFrames",
                                                       "subscribeToVideoFrames"));
}

TEST_F(VideoFrameServiceClientTest, StopRequestingFramesUnsubscribes)
{
    const auto producer = connect();
    client->startRequestingFrames();
    client->stopRequestingFrames();

    EXPECT_EQ(producer->sentSelectors().back(), "unsubscribeFromVideoFrames");
    EXPECT_FALSE(client->requestFrames());
}

TEST_F(VideoFrameServiceClientTest, WithoutAProducerARequestIsRememberedAndNothingIsSent)
{
    Journal journal;
    client->startRequestingFrames();

    EXPECT_TRUE(client->requestFrames());
    EXPECT_THAT(journal.entries(), IsEmpty());
}

TEST_F(VideoFrameServiceClientTest, ARequestSurvivesALossAndIsAnnouncedToTheNextProducer)
{
    client->startRequestingFrames();
    connect()->failWithInvalidation();

    EXPECT_THAT(connect()->sentSelectors(), ElementsAre("subscribeToVideoFrames"));
}

TEST_F(VideoFrameServiceClientTest, TheLastAnnouncementIsThatOfTheValueThatStays)
{
    client->startRequestingFrames();
    int proxies = 0;
    xpc::test::setCallObserver([&](const std::string& call) {
        // The second proxy is the announcement's: the value that it read changes before it is sent.
        if (call == "remoteObjectProxy" && ++proxies == 2) client->stopRequestingFrames();
    });
    const auto producer = connect();

    EXPECT_THAT(producer->sentSelectors(), ElementsAre("unsubscribeFromVideoFrames", "subscribeToVideoFrames",
                                                       "unsubscribeFromVideoFrames"));
}

TEST_F(VideoFrameServiceClientTest, TheProducerIsTheConnectionsRemoteObject)
{
    EXPECT_FALSE(client->producer());
    const auto producer = connect();
    ASSERT_TRUE(client->producer());
    client->producer()->send<&VideoFrameProducerServiceReportReceiving::subconsumerSubscriptionWithPID>(42,
                                                                                                        true);

    const auto sent = producer->sentMessages().back();
    EXPECT_EQ(sent.selector, "subconsumerSubscriptionWithPID:isSubscribedChangedTo:");
    EXPECT_EQ(std::get<std::int32_t>(sent.arguments.at(0)), 42);
    EXPECT_EQ(std::get<bool>(sent.arguments.at(1)), true);
}

TEST_F(VideoFrameServiceClientTest, AFrameIsDeliveredAsAWrapperOfItsSurfaceWithItsTimingUnchanged)
{
    const auto producer = connect();
    const auto surface = makeSurface(64, 48, kCVPixelFormatType_422YpCbCr8);
    sendFrame(*producer, surface, 7);

    ASSERT_EQ(delegate->frames.size(), 1u);
    EXPECT_EQ(CVPixelBufferGetIOSurface(delegate->frames[0].buffer.get()), surface.get());
    const auto timing = makeTiming(7);
    EXPECT_EQ(std::memcmp(&delegate->frames[0].timing, &timing, sizeof(timing)), 0);
}

TEST_F(VideoFrameServiceClientTest, FramesReachTheDelegateInTheOrderOfTheirArrival)
{
    const auto producer = connect();
    const auto surface = makeSurface(64, 48, kCVPixelFormatType_422YpCbCr8);
    for (std::int64_t i = 0; i < 50; ++i)
        producer->send<VideoFrameConsumerService, &VideoFrameConsumerService::didRecieveRawFrame>(
            surface.get(), makeTiming(i));
    drain(client->frameQueue());

    ASSERT_EQ(delegate->frames.size(), 50u);
    for (std::int64_t i = 0; i < 50; ++i)
        EXPECT_EQ(delegate->frames[static_cast<std::size_t>(i)].timing.presentationTimeStamp.value, i);
}

TEST_F(VideoFrameServiceClientTest, ReceivingAFrameDoesNotWaitForTheDelegate)
{
    const auto producer = connect();
    const auto surface = makeSurface(64, 48, kCVPixelFormatType_422YpCbCr8);
    dispatch_suspend(client->frameQueue());
    producer->send<VideoFrameConsumerService, &VideoFrameConsumerService::didRecieveRawFrame>(surface.get(),
                                                                                              makeTiming(0));
    EXPECT_TRUE(delegate->frames.empty());
    dispatch_resume(client->frameQueue());
    drain(client->frameQueue());
    EXPECT_EQ(delegate->frames.size(), 1u);
}

TEST_F(VideoFrameServiceClientTest, ASurfaceThatCannotBeWrappedIsOneErrorAndNoFrame)
{
    const auto producer = connect();
    failures().wrapSurface = -6661;
    Journal journal;
    sendFrame(*producer, makeSurface(64, 48, kCVPixelFormatType_422YpCbCr8));

    EXPECT_THAT(journal.logs(),
                ElementsAre("log error VideoFrameServiceClient: Failed to get pixel buffer from IOSurface"));
    EXPECT_TRUE(delegate->frames.empty());
}

TEST_F(VideoFrameServiceClientTest, ASurfaceOfAnUnknownFormatIsOneErrorAndNoFrame)
{
    const auto producer = connect();
    Journal journal;
    sendFrame(*producer, makeSurface(64, 48, 0x3f3f3f3f));

    EXPECT_EQ(journal.count("log error VideoFrameServiceClient: Failed to get pixel buffer from IOSurface"),
              1u);
    EXPECT_TRUE(delegate->frames.empty());
}

TEST_F(VideoFrameServiceClientTest, AFrameKeepsItsSurfaceOnTheWay)
{
    const auto producer = connect();
    auto surface = makeSurface(64, 48, kCVPixelFormatType_422YpCbCr8);
    dispatch_suspend(client->frameQueue());
    producer->send<VideoFrameConsumerService, &VideoFrameConsumerService::didRecieveRawFrame>(surface.get(),
                                                                                              makeTiming(0));
    EXPECT_TRUE(IOSurfaceIsInUse(surface.get()));
    dispatch_resume(client->frameQueue());
    drain(client->frameQueue());
    delegate->frames.clear();
    EXPECT_FALSE(IOSurfaceIsInUse(surface.get()));
}

TEST_F(VideoFrameServiceClientTest, ATargetRateIsLoggedAndPassedOnOnTheMessagesThread)
{
    const auto producer = connect();
    Journal journal;
    sendRate(*producer, 59.94);

    EXPECT_THAT(journal.logs(),
                ElementsAre("log info VideoFrameServiceClient: Target FPS changed to 59.940000"));
    EXPECT_THAT(delegate->rates, ElementsAre(59.94));
    EXPECT_THAT(delegate->rateThreads, ElementsAre(std::this_thread::get_id()));
}

TEST_F(VideoFrameServiceClientTest, ALostConnectionIsPassedOnOnTheThreadThatReportsIt)
{
    const auto producer = connect();
    std::thread::id reporter;
    std::thread([&] {
        reporter = std::this_thread::get_id();
        producer->failWithInvalidation();
    }).join();

    EXPECT_THAT(delegate->losses, ElementsAre(reporter));
}

TEST_F(VideoFrameServiceClientTest, WithTheDelegateReleasedFramesAndEventsAreDroppedWithoutError)
{
    const auto producer = connect();
    delegate.reset();
    Journal journal;
    sendFrame(*producer, makeSurface(64, 48, kCVPixelFormatType_422YpCbCr8));
    sendRate(*producer, 25.0);
    producer->failWithInterruption();

    EXPECT_THAT(journal.logs(),
                ElementsAre("log info VideoFrameServiceClient: Target FPS changed to 25.000000",
                            "log error BidirectionalXPCServiceServer: "
                            "The XPC connection was interrupted"));
}

TEST_F(VideoFrameServiceClientTest, InsideZoomOn1014EveryFrameIsDeliveredAsACopyFromThePool)
{
    moveTo("us.zoom.xos", kMojave);
    const auto producer = connect();
    const auto surface = makeSurface(64, 48, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
    sendFrame(*producer, surface, 3);
    sendFrame(*producer, surface, 4);

    ASSERT_EQ(delegate->frames.size(), 2u);
    for (const auto& frame : delegate->frames) {
        EXPECT_NE(CVPixelBufferGetIOSurface(frame.buffer.get()), surface.get());
        EXPECT_EQ(CVPixelBufferGetPixelFormatType(frame.buffer.get()),
                  kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
        for (const std::size_t plane : {0u, 1u})
            EXPECT_EQ(planeBytes(frame.buffer.get(), plane, 64), surfacePlaneBytes(surface.get(), plane, 64));
    }
    EXPECT_EQ(delegate->frames[1].timing.presentationTimeStamp.value, 4);
}

TEST_F(VideoFrameServiceClientTest, RowsOfAnotherStrideAreCopiedToTheirPlaces)
{
    moveTo("us.zoom.xos", kMojave);
    const auto producer = connect();
    const auto surface = makeSurface(64, 48, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, 32);
    sendFrame(*producer, surface);

    ASSERT_EQ(delegate->frames.size(), 1u);
    const auto copy = delegate->frames[0].buffer.get();
    ASSERT_NE(CVPixelBufferGetBytesPerRowOfPlane(copy, 0), IOSurfaceGetBytesPerRowOfPlane(surface.get(), 0));
    for (const std::size_t plane : {0u, 1u})
        EXPECT_EQ(planeBytes(copy, plane, 64), surfacePlaneBytes(surface.get(), plane, 64));
}

TEST_F(VideoFrameServiceClientTest, ABufferWithoutPlanesIsReplacedWithoutBeingCopied)
{
    moveTo("us.zoom.xos", kMojave);
    const auto producer = connect();
    const auto surface = makeSurface(64, 48, kCVPixelFormatType_422YpCbCr8);
    sendFrame(*producer, surface);

    ASSERT_EQ(delegate->frames.size(), 1u);
    const auto copy = delegate->frames[0].buffer.get();
    EXPECT_NE(CVPixelBufferGetIOSurface(copy), surface.get());
    CVPixelBufferLockBaseAddress(copy, kCVPixelBufferLock_ReadOnly);
    const auto* bytes = static_cast<const std::uint8_t*>(CVPixelBufferGetBaseAddress(copy));
    EXPECT_NE(std::memcmp(bytes, IOSurfaceGetBaseAddress(surface.get()), 64 * 2), 0);
    CVPixelBufferUnlockBaseAddress(copy, kCVPixelBufferLock_ReadOnly);
}

TEST_F(VideoFrameServiceClientTest, TheOneThatIsCopiedIsReleased)
{
    moveTo("us.zoom.xos", kMojave);
    const auto producer = connect();
    const auto surface = makeSurface(64, 48, kCVPixelFormatType_422YpCbCr8);
    sendFrame(*producer, surface);

    EXPECT_FALSE(IOSurfaceIsInUse(surface.get()));
}

TEST_F(VideoFrameServiceClientTest, WithoutAFreeBufferTheFrameStaysAsItIs)
{
    moveTo("us.zoom.xos", kMojave);
    const auto producer = connect();
    const auto surface = makeSurface(64, 48, kCVPixelFormatType_422YpCbCr8);
    for (std::int64_t i = 0; i <= 60; ++i)
        sendFrame(*producer, surface, i);

    ASSERT_EQ(delegate->frames.size(), 61u);
    EXPECT_NE(CVPixelBufferGetIOSurface(delegate->frames[59].buffer.get()), surface.get());
    EXPECT_EQ(CVPixelBufferGetIOSurface(delegate->frames[60].buffer.get()), surface.get());
}

TEST_F(VideoFrameServiceClientTest, ThePoolFollowsTheFormatOfTheFrames)
{
    moveTo("us.zoom.xos", kMojave);
    const auto producer = connect();
    sendFrame(*producer, makeSurface(64, 48, kCVPixelFormatType_422YpCbCr8));
    sendFrame(*producer, makeSurface(128, 96, kCVPixelFormatType_422YpCbCr8));

    ASSERT_EQ(delegate->frames.size(), 2u);
    EXPECT_EQ(CVPixelBufferGetWidth(delegate->frames[1].buffer.get()), 128u);
}

TEST_F(VideoFrameServiceClientTest, AFrameWithoutDescriptionStaysAsItIsOnceThereIsAPool)
{
    moveTo("us.zoom.xos", kMojave);
    const auto producer = connect();
    const auto surface = makeSurface(64, 48, kCVPixelFormatType_422YpCbCr8);
    sendFrame(*producer, surface);
    failures().formatDescription = -12711;
    sendFrame(*producer, surface);

    ASSERT_EQ(delegate->frames.size(), 2u);
    EXPECT_EQ(CVPixelBufferGetIOSurface(delegate->frames[1].buffer.get()), surface.get());
}

TEST_F(VideoFrameServiceClientDeathTest, AFirstFrameWithoutDescriptionEndsTheProcessWhereFramesAreCopied)
{
    EXPECT_DEATH(
        {
            moveTo("us.zoom.xos", kMojave);
            const auto producer = connect();
            failures().formatDescription = -12711;
            sendFrame(*producer, makeSurface(64, 48, kCVPixelFormatType_422YpCbCr8));
        },
        "Fatal error: There is no format description for the frame to copy");
}

struct Host {
    const char* name;
    std::optional<std::string> identifier;
    ns::OperatingSystemVersion version;
};

void PrintTo(const Host& host, std::ostream* out)
{
    *out << host.name;
}

class VideoFrameServiceClientElsewhere : public VideoFrameServiceClientTest,
                                         public testing::WithParamInterface<Host> {};

TEST_P(VideoFrameServiceClientElsewhere, DeliversTheWrapperMadeFromTheSurface)
{
    moveTo(GetParam().identifier, GetParam().version);
    const auto producer = connect();
    const auto surface = makeSurface(64, 48, kCVPixelFormatType_422YpCbCr8);
    sendFrame(*producer, surface);

    ASSERT_EQ(delegate->frames.size(), 1u);
    EXPECT_EQ(CVPixelBufferGetIOSurface(delegate->frames[0].buffer.get()), surface.get());
}

INSTANTIATE_TEST_SUITE_P(, VideoFrameServiceClientElsewhere,
                         testing::Values(Host{"ZoomOn1015", "us.zoom.xos", {10, 15, 0}},
                                         Host{"ZoomOn1114", "us.zoom.xos", {11, 14, 0}},
                                         Host{"ZoomInCapitals", "US.zoom.xos", kMojave},
                                         Host{"ZoomWithoutDot", "us.zoom", kMojave},
                                         Host{"ZoomInside", "com.us.zoom.xos", kMojave},
                                         Host{"NoIdentifier", std::nullopt, kMojave}),
                         [](const testing::TestParamInfo<Host>& host) { return host.param.name; });

}  // namespace
}  // namespace pavo
