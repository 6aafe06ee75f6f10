#include "CMIOExtensionSupport/VideoStreamSource.h"
#include "Tests/CMIOExtensionSupport/AuthorizationRecorder.h"
#include "Tests/CMIOExtensionSupport/VideoStreamSourceFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <thread>
#include <type_traits>

namespace pavo {
namespace {

using namespace test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

static_assert(!std::is_default_constructible_v<VideoStreamSource>, "made by create only");

constexpr auto kStarting = "log default VideoStreamSource: Starting stream! Yay :)";
constexpr auto kStopping = "log default VideoStreamSource: Stopping stream! Bye :'(";

using VideoStreamSourceTest = VideoStreamSourceFixture;
using VideoStreamSourceDeathTest = VideoStreamSourceFixture;

TEST_F(VideoStreamSourceTest, RegistersItsListenerUnderTheServiceNameInTheParentNamespace)
{
    const auto registrations = takeRegistrations();
    ASSERT_EQ(registrations.size(), 1u);
    EXPECT_EQ(registrations[0].namespacePort, kParentPort);
    EXPECT_EQ(registrations[0].name, "com.tarnwell.macos.cam.avextension");
    EXPECT_EQ(registrations[0].port, xpc::test::port(*listener));
}

TEST_F(VideoStreamSourceTest, IsConstructedInItsFixedOrder)
{
    Journal journal;
    const auto other = VideoStreamSource::create();

    EXPECT_THAT(journal.entries(),
                ElementsAre("Listener endpoint", "Listener setDelegate", "Listener resume",
                            "log default BidirectionalXPCServiceServer: Starting XPC listener!",
                            "create stream", "observe clients"));
}

TEST_F(VideoStreamSourceTest, KeepsItsListenerAlive)
{
    std::weak_ptr<xpc::Listener> weakListener = listener;
    listener.reset();
    EXPECT_FALSE(weakListener.expired());
    listener = weakListener.lock();
}

TEST_F(VideoStreamSourceTest, StartsWithNothingGoingOn)
{
    EXPECT_EQ(Access::streamingCounter(*source), 0u);
    EXPECT_FALSE(Access::isGettingFrames(*source));
    EXPECT_FALSE(Access::isTimerRunning(*source));
    EXPECT_THAT(Access::currentClientPIDs(*source), IsEmpty());
    EXPECT_FALSE(source->frameClient()->requestFrames());
    EXPECT_EQ(Access::sequenceNumber(*source), 0u);
    EXPECT_EQ(Access::frameRate(*source), 30.0);
}

TEST_F(VideoStreamSourceTest, TicksSixtyTimesASecond)
{
    EXPECT_EQ(Access::timerInterval(*source), 0.016666666666666666);
}

TEST_F(VideoStreamSourceTest, CreatesAnOutputStreamOnTheHostClock)
{
    const auto stream = cmio::test::record(*source->stream());
    EXPECT_EQ(stream.localizedName, "Pavo Camera");
    EXPECT_EQ(stream.direction, cmio::ExtensionStreamDirection::source);
    EXPECT_EQ(stream.clockType, cmio::ExtensionStreamClockType::hostTime);
    EXPECT_EQ(stream.source.lock(), source);
    EXPECT_EQ(cmio::test::observerCount(*source->stream()), 1u);
}

TEST_F(VideoStreamSourceTest, TheStreamIDDiffersOnEveryConstructionAndTheNameDoesNot)
{
    const auto first = cmio::test::record(*source->stream());
    const auto other = VideoStreamSource::create();
    const auto second = cmio::test::record(*other->stream());

    EXPECT_NE(first.streamID, second.streamID);
    EXPECT_EQ(first.localizedName, "Pavo Camera");
    EXPECT_EQ(second.localizedName, "Pavo Camera");
}

TEST_F(VideoStreamSourceTest, OffersOneFormatOf1920By1080AtThirtyFramesASecond)
{
    const auto formats = source->formats();
    ASSERT_EQ(formats.size(), 1u);
    const auto& format = formats[0];
    const auto dimensions = CMVideoFormatDescriptionGetDimensions(format.formatDescription.get());
    EXPECT_EQ(dimensions.width, 1920);
    EXPECT_EQ(dimensions.height, 1080);
    EXPECT_EQ(CMFormatDescriptionGetMediaSubType(format.formatDescription.get()),
              kCVPixelFormatType_422YpCbCr8);
    EXPECT_THAT(format.validFrameDurations, IsEmpty());
    for (const auto& duration : {format.maxFrameDuration, format.minFrameDuration}) {
        EXPECT_EQ(duration.value, 100);
        EXPECT_EQ(duration.timescale, 3000);
        EXPECT_EQ(duration.flags, kCMTimeFlags_Valid);
        EXPECT_EQ(duration.epoch, 0);
    }
}

TEST_F(VideoStreamSourceTest, HasTheActiveFormatIndexAndTheFrameDurationAsProperties)
{
    EXPECT_THAT(source->availableProperties(),
                UnorderedElementsAre("CMIOExtensionPropertyStreamActiveFormatIndex",
                                     "CMIOExtensionPropertyStreamFrameDuration"));
}

TEST_F(VideoStreamSourceTest, AnsweringAnEmptySetGivesEmptyProperties)
{
    ns::Error error;
    const auto properties = source->streamProperties({}, &error);
    ASSERT_TRUE(properties);
    EXPECT_THAT(properties->propertiesDictionary(), IsEmpty());
    EXPECT_EQ(error, ns::Error());
}

TEST_F(VideoStreamSourceTest, AnsweringBothKeysGivesIndexZeroAndAThirtiethOfASecond)
{
    const auto properties = source->streamProperties(source->availableProperties(), nullptr);
    ASSERT_TRUE(properties);
    EXPECT_EQ(properties->activeFormatIndex(), 0u);
    const auto duration = properties->frameDuration();
    ASSERT_TRUE(duration);
    EXPECT_EQ(duration->value, 100);
    EXPECT_EQ(duration->timescale, 3000);
}

TEST_F(VideoStreamSourceTest, LeavesOtherPropertiesUnset)
{
    const auto properties =
        source->streamProperties({"CMIOExtensionPropertyStreamMaxFrameDuration"}, nullptr);
    ASSERT_TRUE(properties);
    EXPECT_THAT(properties->propertiesDictionary(), IsEmpty());
}

TEST_F(VideoStreamSourceTest, SettingPropertiesSucceedsAndChangesNothing)
{
    cmio::ExtensionStreamProperties properties(cmio::ExtensionProperties::Dictionary{});
    properties.setActiveFormatIndex(7);
    ns::Error error;
    EXPECT_TRUE(source->setStreamProperties(properties, &error));
    EXPECT_EQ(error, ns::Error());
    EXPECT_EQ(source->streamProperties(source->availableProperties(), nullptr)->activeFormatIndex(), 0u);
}

TEST_F(VideoStreamSourceTest, AuthorizesEveryClient)
{
    for (const std::int32_t pid : {0, 1, 4711})
        EXPECT_TRUE(source->authorizedToStartStream({ns::UUID::random(), pid}));
}

TEST_F(VideoStreamSourceTest, TwoStartsThenOneStopOnlyTheFirstAndTheLastDoMoreThanCount)
{
    const auto producer = connectProducer();
    ns::Error error;
    Journal journal;

    EXPECT_TRUE(source->startStream(&error));
    EXPECT_EQ(journal.count(kStarting), 1u);
    EXPECT_EQ(producer->sentSelectors().back(), "subscribeToVideoFrames");
    EXPECT_TRUE(Access::isTimerRunning(*source));
    const auto sentByFirstStart = producer->sentSelectors().size();

    EXPECT_TRUE(source->startStream(&error));
    EXPECT_EQ(Access::streamingCounter(*source), 2u);
    EXPECT_EQ(journal.count(kStarting), 1u);
    EXPECT_EQ(producer->sentSelectors().size(), sentByFirstStart);

    EXPECT_TRUE(source->stopStream(&error));
    EXPECT_EQ(Access::streamingCounter(*source), 1u);
    EXPECT_EQ(journal.count(kStopping), 0u);
    EXPECT_EQ(producer->sentSelectors().size(), sentByFirstStart);
    EXPECT_TRUE(Access::isTimerRunning(*source));

    EXPECT_TRUE(source->stopStream(&error));
    EXPECT_EQ(Access::streamingCounter(*source), 0u);
    EXPECT_EQ(journal.count(kStopping), 1u);
    EXPECT_EQ(producer->sentSelectors().back(), "unsubscribeFromVideoFrames");
    EXPECT_FALSE(Access::isTimerRunning(*source));
    EXPECT_EQ(error, ns::Error());
}

TEST_F(VideoStreamSourceTest, AStopThatIsNotTheLastKeepsTheTimerStoppedWhileProducerFramesArrive)
{
    const auto producer = connectProducer();
    source->startStream(nullptr);
    source->startStream(nullptr);
    sendFrame(*producer);
    source->stopStream(nullptr);

    EXPECT_FALSE(Access::isTimerRunning(*source));
}

TEST_F(VideoStreamSourceTest, AStartWhileProducerFramesArriveLeavesTheTimerStopped)
{
    const auto producer = connectProducer();
    sendFrame(*producer);
    source->startStream(nullptr);

    EXPECT_FALSE(Access::isTimerRunning(*source));
}

TEST_F(VideoStreamSourceTest, LogsTheStartBeforeItSubscribes)
{
    const auto producer = connectProducer();
    Journal journal;
    source->startStream(nullptr);

    const auto entries = journal.entries();
    const auto subscribing = std::find(entries.begin(), entries.end(), "remoteObjectProxy");
    ASSERT_NE(subscribing, entries.end());
    EXPECT_EQ(entries[0], kStarting);
}

// What the helper was sent over every connection to it since the last call.
std::vector<std::string> sentToHelper()
{
    std::vector<std::string> selectors;
    for (const auto& peer : xpc::test::takeDialledPeers())
        for (const auto& selector : peer->sentSelectors())
            selectors.push_back(selector);
    return selectors;
}

TEST_F(VideoStreamSourceTest, EachFirstStartAsksTheHelperOnceToLaunchTheStudio)
{
    for (int round = 0; round < 3; ++round) {
        source->startStream(nullptr);
        EXPECT_THAT(sentToHelper(), ElementsAre("launchStudioIfNeeded"));
        source->startStream(nullptr);
        source->stopStream(nullptr);
        source->startStream(nullptr);
        source->stopStream(nullptr);
        source->stopStream(nullptr);
        EXPECT_THAT(sentToHelper(), IsEmpty());
    }
}

TEST_F(VideoStreamSourceTest, TheHelperIsAskedBetweenTheAnnouncementAndTheSubscription)
{
    const auto producer = connectProducer();
    xpc::test::setService({[](xpc::test::Peer&, const xpc::test::SentMessage&) -> xpc::test::Answer {
                               return std::vector<xpc::Argument>{};
                           },
                           nullptr});
    Journal journal;
    source->startStream(nullptr);

    EXPECT_THAT(
        journal.entries(),
        ElementsAre(
            kStarting, "withMachServiceName com.tarnwell.macos.cam.PrivilegedHelper privileged",
            "setRemoteObjectInterface CMIOExtensionSupport.BosunServiceProtocol", "resume",
            "log default BosunCommunicator: Opened a new Bosun connection!", "setInvalidationHandler",
            "setInterruptionHandler", "log default BosunCommunicator: Bosun lives! Enjoy the connection.",
            "synchronousRemoteObjectProxyWithErrorHandler",
            "log default BosunCommunicator: Closing Bosun connection for deinit",
            "setInvalidationHandler none", "setInterruptionHandler none", "invalidate", "remoteObjectProxy"));
}

TEST_F(VideoStreamSourceTest, AHelperThatFailsDoesNotKeepTheStreamFromStarting)
{
    const auto producer = connectProducer();
    const auto fails = [](xpc::test::Peer& peer, const xpc::test::SentMessage&) -> xpc::test::Answer {
        peer.failWithInterruption();
        return ns::Error{"NSCocoaErrorDomain", 4097};
    };
    ns::Error error;
    for (const bool isThere : {false, true}) {
        xpc::test::setService(isThere ? xpc::test::Service{fails, nullptr} : xpc::test::Service{});
        EXPECT_TRUE(source->startStream(&error));
        EXPECT_EQ(Access::streamingCounter(*source), 1u);
        EXPECT_EQ(producer->sentSelectors().back(), "subscribeToVideoFrames");
        EXPECT_TRUE(Access::isTimerRunning(*source));
        source->stopStream(&error);
    }
    EXPECT_EQ(error, ns::Error());
}

TEST_F(VideoStreamSourceTest, AStartInstallsNothingAndAsksForNoAuthorization)
{
    takeAuthorizationCalls();
    source->startStream(nullptr);
    EXPECT_THAT(takeAuthorizationCalls(), IsEmpty());
}

TEST_F(VideoStreamSourceTest, AnotherClientStartsAndGetsFramesWhileAStartIsWithTheHelper)
{
    const auto producer = connectProducer();
    std::size_t sentMeanwhile = 0;
    xpc::test::setService({[&](xpc::test::Peer&, const xpc::test::SentMessage&) -> xpc::test::Answer {
                               source->startStream(nullptr);
                               sendFrame(*producer);
                               sentMeanwhile = sentCount();
                               return std::vector<xpc::Argument>{};
                           },
                           nullptr});
    Journal journal;
    source->startStream(nullptr);
    EXPECT_EQ(sentMeanwhile, 1u);
    EXPECT_EQ(Access::streamingCounter(*source), 2u);
    // It is one first start all the same.
    EXPECT_THAT(sentToHelper(), ElementsAre("launchStudioIfNeeded"));
    EXPECT_EQ(journal.count(kStarting), 1u);
}

TEST_F(VideoStreamSourceTest, OnlyTheFirstStartResetsTheSequenceNumber)
{
    const auto producer = connectProducer();
    sendFrame(*producer);  // stops the ticks before they begin
    source->startStream(nullptr);
    sendFrame(*producer);
    sendFrame(*producer);
    source->startStream(nullptr);
    EXPECT_EQ(Access::sequenceNumber(*source), 2u);

    source->stopStream(nullptr);
    source->stopStream(nullptr);
    EXPECT_EQ(Access::sequenceNumber(*source), 2u);
    source->startStream(nullptr);
    EXPECT_EQ(Access::sequenceNumber(*source), 0u);
}

TEST_F(VideoStreamSourceTest, AStartWithoutProducerIsRememberedForTheOneThatConnects)
{
    source->startStream(nullptr);
    EXPECT_TRUE(source->frameClient()->requestFrames());
    EXPECT_THAT(connectProducer()->sentSelectors(), ElementsAre("subscribeToVideoFrames"));
}

TEST_F(VideoStreamSourceTest, ClientsThatGoAreReportedRemovedThoseThatComeAddedAndNoOthers)
{
    const auto producer = connectProducer();
    cmio::test::setStreamingPIDs(*source->stream(), {100, 200});
    drainFrameQueue();
    EXPECT_THAT(reports(*producer), UnorderedElementsAre("100 1", "200 1"));

    Journal journal;
    cmio::test::setStreamingPIDs(*source->stream(), {200, 300});
    drainFrameQueue();
    EXPECT_THAT(reports(*producer), UnorderedElementsAre("100 1", "200 1", "100 0", "300 1"));
    EXPECT_THAT(journal.logs(),
                UnorderedElementsAre("log default VideoStreamSource: Subconsumer state changed: 100 was "
                                     "removed, reporting to producer",
                                     "log default VideoStreamSource: Subconsumer state changed: 300 was "
                                     "added, reporting to producer"));
    EXPECT_THAT(Access::currentClientPIDs(*source), ElementsAre(200, 300));
}

TEST_F(VideoStreamSourceTest, ReportsBeforeItLogs)
{
    const auto producer = connectProducer();
    Journal journal;
    cmio::test::setStreamingPIDs(*source->stream(), {100});
    drainFrameQueue();

    EXPECT_THAT(journal.entries(),
                ElementsAre("remoteObjectProxy",
                            "log default VideoStreamSource: Subconsumer state changed: 100 "
                            "was added, reporting to producer"));
}

TEST_F(VideoStreamSourceTest, ClientChangesAreLoggedWithoutAProducerToo)
{
    Journal journal;
    cmio::test::setStreamingPIDs(*source->stream(), {100});
    drainFrameQueue();

    EXPECT_THAT(journal.entries(),
                ElementsAre("log default VideoStreamSource: Subconsumer state changed: 100 "
                            "was added, reporting to producer"));
}

TEST_F(VideoStreamSourceTest, ClientsOfOneProcessAreOneSubconsumer)
{
    const auto producer = connectProducer();
    cmio::test::setStreamingPIDs(*source->stream(), {100, 100});
    cmio::test::setStreamingPIDs(*source->stream(), {100});
    drainFrameQueue();

    EXPECT_THAT(reports(*producer), ElementsAre("100 1"));
}

TEST_F(VideoStreamSourceTest, EndsItsObservationAndSendsNothingWhenItGoes)
{
    const auto producer = connectProducer();
    source->startStream(nullptr);
    drainFrameQueue();
    const auto sentBefore = producer->sentSelectors().size();
    const auto stream = source->stream();
    const std::weak_ptr<VideoStreamSource> weakSource = source;
    source.reset();
    EXPECT_TRUE(weakSource.expired());

    EXPECT_EQ(cmio::test::observerCount(*stream), 0u);
    EXPECT_EQ(producer->sentSelectors().size(), sentBefore);
}

TEST_F(VideoStreamSourceTest, StartsStopsAndClientChangesMayComeFromOtherThreadsWhileFramesArrive)
{
    const auto producer = connectProducer();
    std::thread starter([this] {
        for (int i = 0; i < 100; ++i) {
            source->startStream(nullptr);
            cmio::test::setStreamingPIDs(*source->stream(), {i});
            source->stopStream(nullptr);
        }
    });
    std::thread loser([this] {
        for (int i = 0; i < 50; ++i) {
            source->frameServiceTargetFPSChanged(24.0 + i);
            source->frameServiceDidLoseConnection();
        }
    });
    for (int i = 0; i < 100; ++i)
        sendFrame(*producer);
    starter.join();
    loser.join();
    drainFrameQueue();

    EXPECT_EQ(Access::streamingCounter(*source), 0u);
    EXPECT_THAT(Access::currentClientPIDs(*source), ElementsAre(99));
    EXPECT_FALSE(Access::isTimerRunning(*source));
}

TEST_F(VideoStreamSourceDeathTest, AStopWithTheCounterAtZeroEndsTheProcess)
{
    EXPECT_DEATH(source->stopStream(nullptr),
                 "CMIOExtensionSupport/VideoStreamSource.cpp:[0-9]+: Fatal error: "
                 "The stream was stopped without having been started");
}

TEST_F(VideoStreamSourceDeathTest, AStartTooManyEndsTheProcess)
{
    EXPECT_DEATH(
        {
            Access::setStreamingCounter(*source, std::numeric_limits<std::uint32_t>::max());
            source->startStream(nullptr);
        },
        "Fatal error: The stream was started too often");
}

TEST_F(VideoStreamSourceDeathTest, AClientChangeWithoutNewValueEndsTheProcess)
{
    EXPECT_DEATH(cmio::test::setStreamingClients(*source->stream(), std::nullopt),
                 "Fatal error: The streaming clients changed to nothing");
}

TEST_F(VideoStreamSourceDeathTest, AMissingStreamFormatEndsTheProcess)
{
    EXPECT_DEATH(
        {
            Access::clearStreamFormat(*source);
            source->streamProperties(source->availableProperties(), nullptr);
        },
        "Fatal error: The stream source has no stream format");
}

TEST_F(VideoStreamSourceDeathTest, AMissingStreamFormatEndsTheProcessAtADefaultFrame)
{
    EXPECT_DEATH(
        {
            Access::clearStreamFormat(*source);
            Access::sendDefaultFrame(*source);
        },
        "Fatal error: The stream source has no stream format");
}

}  // namespace
}  // namespace pavo
