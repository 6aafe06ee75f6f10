#include "CMIOExtensionSupport/VideoStreamSource.h"
#include "Tests/CMIOExtensionSupport/VideoStreamSourceFixture.h"
#include "Tests/Support/Wait.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <utility>

namespace pavo {
namespace {

using namespace test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto kLost = "log info VideoStreamSource: Connection died. Swapping back to dead relay frame…";

using VideoStreamSourceFrames = VideoStreamSourceFixture;
using VideoStreamSourceFramesDeathTest = VideoStreamSourceFixture;

CMTime presentationTime(const cmio::test::SentSample& sent)
{
    return CMSampleBufferGetPresentationTimeStamp(sent.sample.get());
}

CMVideoDimensions dimensions(const cmio::test::SentSample& sent)
{
    return CMVideoFormatDescriptionGetDimensions(CMSampleBufferGetFormatDescription(sent.sample.get()));
}

bool isAllZero(const CMTime& time)
{
    return time.value == 0 && time.timescale == 0 && time.flags == 0 && time.epoch == 0;
}

TEST_F(VideoStreamSourceFrames, WithNobodyStreamingNothingIsSentButAFrameStillSwitchesAndReports)
{
    cmio::test::setStreamingPIDs(*source->stream(), {100});
    const auto producer = connectProducer();
    sendFrame(*producer);
    Access::fireTimer(*source);
    Access::sendDefaultFrame(*source);
    drainFrameQueue();

    EXPECT_EQ(sentCount(), 0u);
    EXPECT_EQ(Access::sequenceNumber(*source), 0u);
    EXPECT_TRUE(Access::isGettingFrames(*source));
    EXPECT_THAT(reports(*producer), Contains("100 1"));
}

TEST_F(VideoStreamSourceFrames, NothingIsSentAfterTheLastStop)
{
    const auto producer = connectProducer();
    source->startStream(nullptr);
    sendFrame(*producer);
    source->stopStream(nullptr);
    const auto before = sentCount();
    sendFrame(*producer);
    Access::fireTimer(*source);
    drainFrameQueue();

    EXPECT_EQ(sentCount(), before);
}

TEST_F(VideoStreamSourceFrames, AProducerThatConnectsWhileTwoClientsStreamHearsOfBothOnItsFirstFrameOnly)
{
    cmio::test::setStreamingPIDs(*source->stream(), {100, 200});
    source->startStream(nullptr);
    drainFrameQueue();
    const auto producer = connectProducer();
    EXPECT_THAT(reports(*producer), IsEmpty());

    Journal journal;
    sendFrame(*producer);
    EXPECT_THAT(reports(*producer), ElementsAre("100 1", "200 1"));
    EXPECT_EQ(journal.count("log default VideoStreamSource: Sending existing subconsumers (count = 2) to "
                            "producer"),
              1u);

    sendFrame(*producer);
    EXPECT_THAT(reports(*producer), ElementsAre("100 1", "200 1"));
    EXPECT_EQ(journal.count("log default VideoStreamSource: Sending existing subconsumers (count = 2) to "
                            "producer"),
              1u);
}

TEST_F(VideoStreamSourceFrames, AProducerFrameStopsTheTimerAndIsSent)
{
    const auto producer = connectProducer();
    source->startStream(nullptr);
    EXPECT_TRUE(Access::isTimerRunning(*source));
    sendFrame(*producer);

    EXPECT_FALSE(Access::isTimerRunning(*source));
    ASSERT_GE(sentCount(), 1u);
    EXPECT_EQ(dimensions(cmio::test::sentSamples(*source->stream()).back()).width, 64);
}

TEST_F(VideoStreamSourceFrames, AFireOfTheTimerThatComesLateSendsNoDefaultFrameBetweenProducerFrames)
{
    const auto producer = connectProducer();
    source->startStream(nullptr);
    sendFrame(*producer);
    const auto before = sentCount();
    Access::fireTimer(*source);
    drainFrameQueue();

    EXPECT_EQ(sentCount(), before);
}

TEST_F(VideoStreamSourceFrames, DefaultFramesAreSentOnEveryTickWhileSomebodyStreams)
{
    source->startStream(nullptr);
    ASSERT_TRUE(waitFor([this] { return sentCount() >= 3; }));

    const auto sent = cmio::test::sentSamples(*source->stream());
    EXPECT_EQ(dimensions(sent[0]).width, 1920);
    EXPECT_EQ(dimensions(sent[0]).height, 1080);
    EXPECT_EQ(CMSampleBufferGetImageBuffer(sent[0].sample.get()),
              CMSampleBufferGetImageBuffer(sent[1].sample.get()));
    EXPECT_GE(Access::sequenceNumber(*source), 3u);
}

TEST_F(VideoStreamSourceFrames, AfterAConnectionLossDefaultFramesResumeOnTheNextTick)
{
    const auto producer = connectProducer();
    source->startStream(nullptr);
    sendFrame(*producer);
    Journal journal;
    producer->failWithInvalidation();
    drainFrameQueue();

    EXPECT_EQ(journal.count(kLost), 1u);
    EXPECT_FALSE(Access::isGettingFrames(*source));
    EXPECT_TRUE(Access::isTimerRunning(*source));
    const auto before = sentCount();
    EXPECT_TRUE(waitFor([this, before] { return sentCount() > before; }));
    EXPECT_EQ(dimensions(cmio::test::sentSamples(*source->stream()).back()).width, 1920);
}

TEST_F(VideoStreamSourceFrames, AConnectionLossWhileNobodyStreamsLeavesTheTimerStopped)
{
    const auto producer = connectProducer();
    sendFrame(*producer);
    producer->failWithInvalidation();
    drainFrameQueue();

    EXPECT_FALSE(Access::isGettingFrames(*source));
    EXPECT_FALSE(Access::isTimerRunning(*source));
}

TEST_F(VideoStreamSourceFrames, ALossWithoutFramesIsLoggedAndChangesNothing)
{
    const auto producer = connectProducer();
    source->startStream(nullptr);
    Journal journal;
    producer->failWithInterruption();
    drainFrameQueue();

    EXPECT_EQ(journal.count(kLost), 1u);
    EXPECT_TRUE(Access::isTimerRunning(*source));
}

TEST_F(VideoStreamSourceFrames, AProducerThatComesBackHearsOfTheClientsAgain)
{
    cmio::test::setStreamingPIDs(*source->stream(), {100});
    source->startStream(nullptr);
    auto producer = connectProducer();
    sendFrame(*producer);
    producer->failWithInvalidation();
    producer = connectProducer();
    sendFrame(*producer);

    EXPECT_THAT(reports(*producer), ElementsAre("100 1"));
    EXPECT_FALSE(Access::isTimerRunning(*source));
}

TEST_F(VideoStreamSourceFrames, EverySampleIsStampedWithTheHostClockAndTheSameTimeInNanoseconds)
{
    const auto producer = connectProducer();
    source->startStream(nullptr);
    const CMTime before = CMClockGetTime(CMClockGetHostTimeClock());
    sendFrame(*producer);
    sendFrame(*producer);
    const CMTime after = CMClockGetTime(CMClockGetHostTimeClock());

    const auto samples = cmio::test::sentSamples(*source->stream());
    ASSERT_GE(samples.size(), 2u);
    for (const auto& sent : samples) {
        const CMTime time = presentationTime(sent);
        EXPECT_LE(CMTimeGetSeconds(time), CMTimeGetSeconds(after));
        EXPECT_EQ(sent.hostTimeNanoseconds, static_cast<std::uint64_t>(CMTimeGetSeconds(time) * 1e9));
        EXPECT_EQ(sent.discontinuity, cmio::ExtensionStreamDiscontinuityFlags::none);
    }
    EXPECT_GE(CMTimeGetSeconds(presentationTime(samples.back())), CMTimeGetSeconds(before));
}

TEST_F(VideoStreamSourceFrames, DurationAndDecodeTimeAreAllZeroAndTheProducersTimingIsNotUsed)
{
    const auto producer = connectProducer();
    sendFrame(*producer);  // stops the ticks before they begin
    source->startStream(nullptr);
    failures().hostTime = CMTimeMake(2'500'000'000, 1'000'000'000);
    sendFrame(*producer);

    const auto sent = cmio::test::sentSamples(*source->stream()).back();
    CMSampleTimingInfo timing = {};
    ASSERT_EQ(CMSampleBufferGetSampleTimingInfo(sent.sample.get(), 0, &timing), noErr);
    EXPECT_TRUE(isAllZero(timing.duration));
    EXPECT_TRUE(isAllZero(timing.decodeTimeStamp));
    EXPECT_EQ(CMTimeGetSeconds(timing.presentationTimeStamp), 2.5);
    EXPECT_EQ(sent.hostTimeNanoseconds, 2'500'000'000u);
}

TEST_F(VideoStreamSourceFrames, EachSentFrameAdvancesTheSequenceNumberByOne)
{
    const auto producer = connectProducer();
    sendFrame(*producer);  // stops the ticks before they begin
    source->startStream(nullptr);
    sendFrame(*producer);
    EXPECT_EQ(Access::sequenceNumber(*source), 1u);
    sendFrame(*producer);
    EXPECT_EQ(Access::sequenceNumber(*source), 2u);
}

TEST_F(VideoStreamSourceFrames, AFrameWithoutFormatDescriptionIsLoggedAndDropped)
{
    const auto producer = connectProducer();
    sendFrame(*producer);  // stops the ticks before they begin
    source->startStream(nullptr);
    failures().formatDescription = -12731;
    Journal journal;
    sendFrame(*producer);

    EXPECT_EQ(journal.count("log error VideoStreamSource: Failed to get format description for frame :("),
              1u);
    EXPECT_EQ(sentCount(), 0u);
    EXPECT_EQ(Access::sequenceNumber(*source), 0u);
}

TEST_F(VideoStreamSourceFrames, ADescriptionIsReusedUntilTheFramesChange)
{
    const auto producer = connectProducer();
    sendFrame(*producer);
    source->startStream(nullptr);
    sendFrame(*producer);
    sendFrame(*producer);
    sendFrame(*producer, 128, 96);

    const auto sent = cmio::test::sentSamples(*source->stream());
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(CMSampleBufferGetFormatDescription(sent[0].sample.get()),
              CMSampleBufferGetFormatDescription(sent[1].sample.get()));
    EXPECT_EQ(dimensions(sent[2]).width, 128);
}

TEST_F(VideoStreamSourceFrames, AFrameRateChangeReachesTheControllerAndNotTheFormatOrTheTimer)
{
    const auto producer = connectProducer();
    Journal journal;
    producer->send<VideoFrameConsumerService, &VideoFrameConsumerService::targetFPSChangedTo>(60.0);
    drainFrameQueue();

    EXPECT_THAT(journal.logs(),
                ElementsAre("log info VideoFrameServiceClient: Target FPS changed to 60.000000",
                            "log info VideoStreamSource: Frame rate changed to 60.000000",
                            "log info StreamBufferHelper: Updating frame rate related properties"));
    EXPECT_EQ(Access::frameRate(*source), 60.0);
    EXPECT_EQ(source->formats()[0].maxFrameDuration.timescale, 3000);
    EXPECT_EQ(Access::timerInterval(*source), 1.0 / 60.0);
}

TEST_F(VideoStreamSourceFrames, AFrameRateChangeToTheSameValueIsLoggedButTheControllerLogsNothingMore)
{
    Journal journal;
    source->frameServiceTargetFPSChanged(30.0);
    drainFrameQueue();

    EXPECT_THAT(journal.logs(), ElementsAre("log info VideoStreamSource: Frame rate changed to 30.000000"));
}

TEST_F(VideoStreamSourceFrames, AFrameRateThatMakesNoSenseDoesNoHarm)
{
    const auto producer = connectProducer();
    source->startStream(nullptr);
    for (const double rate : {0.0, -1.0, std::numeric_limits<double>::infinity(), std::nan("")})
        producer->send<VideoFrameConsumerService, &VideoFrameConsumerService::targetFPSChangedTo>(rate);
    sendFrame(*producer);

    EXPECT_GE(sentCount(), 1u);
}

TEST_F(VideoStreamSourceFrames, FiresThatWaitForTheQueueDoNotPileUp)
{
    source->startStream(nullptr);
    std::size_t before = 0;
    std::size_t after = 0;
    dispatch::sync(Access::queue(*source), [&] {
        before = sentCount();
        for (int i = 0; i < 100; ++i)
            Access::fireTimer(*source);
        // Behind what the fires queued, and before anything that the timer can queue from now on.
        dispatch::async(Access::queue(*source), [&] { after = sentCount(); });
    });
    drainFrameQueue();

    EXPECT_EQ(after, before + 1);
}

TEST_F(VideoStreamSourceFrames, AFrameThatArrivesWhileTheStreamIsBuiltFindsItComplete)
{
    std::shared_ptr<xpc::test::Peer> producer;
    cmio::test::setCallObserver([&](const std::string& call) {
        if (call != "create stream") return;
        producer = xpc::test::Peer::connect(*xpc::test::lastListener());
        const auto surface = makeSurface(64, 48, kCVPixelFormatType_422YpCbCr8);
        producer->send<VideoFrameConsumerService, &VideoFrameConsumerService::didRecieveRawFrame>(
            surface.get(), makeTiming(0));
    });
    const auto other = VideoStreamSource::create();
    drain(Access::queue(*other));

    ASSERT_TRUE(producer);
    EXPECT_TRUE(Access::isGettingFrames(*other));
}

TEST_F(VideoStreamSourceFrames, WhatStillWaitsWhenTheSourceGoesDoesNothing)
{
    const auto queue = dispatch::Queue::retain(Access::queue(*source));
    const auto stream = source->stream();
    const std::weak_ptr<VideoStreamSource> weakSource = source;
    dispatch_suspend(queue.get());
    source->frameServiceDidLoseConnection();
    source->frameServiceTargetFPSChanged(24.0);
    cmio::test::setStreamingPIDs(*stream, {1});
    Access::fireTimer(*source);
    Journal journal;
    source.reset();
    dispatch_resume(queue.get());
    drain(queue.get());

    EXPECT_TRUE(weakSource.expired());
    EXPECT_THAT(journal.logs(), IsEmpty());
}

TEST_F(VideoStreamSourceFramesDeathTest, ASampleBufferThatCannotBeCreatedEndsTheProcess)
{
    EXPECT_DEATH(
        {
            const auto producer = connectProducer();
            failures().sampleBuffer = -12730;
            source->startStream(nullptr);
            sendFrame(*producer);
        },
        "Fatal error: The sample buffer of a frame could not be created");
}

TEST_F(VideoStreamSourceFramesDeathTest, AHostTimeOfMinusASecondEndsTheProcess)
{
    EXPECT_DEATH(
        {
            const auto producer = connectProducer();
            failures().hostTime = CMTimeMake(-1, 1);
            source->startStream(nullptr);
            sendFrame(*producer);
        },
        "Fatal error: The host time does not fit 64 bits of nanoseconds");
}

TEST_F(VideoStreamSourceFramesDeathTest, AHostTimeThatIsTooLargeEndsTheProcess)
{
    EXPECT_DEATH(
        {
            const auto producer = connectProducer();
            failures().hostTime = CMTimeMake(18'446'744'074, 1);
            source->startStream(nullptr);
            sendFrame(*producer);
        },
        "Fatal error: The host time does not fit 64 bits of nanoseconds");
}

TEST_F(VideoStreamSourceFramesDeathTest, AHostTimeThatIsNoNumberEndsTheProcess)
{
    EXPECT_DEATH(
        {
            const auto producer = connectProducer();
            failures().hostTime = CMTime{};
            source->startStream(nullptr);
            sendFrame(*producer);
        },
        "Fatal error: The host time does not fit 64 bits of nanoseconds");
}

TEST_F(VideoStreamSourceFramesDeathTest, AMissingStreamEndsTheProcessAtTheFirstFrame)
{
    EXPECT_DEATH(
        {
            const auto producer = connectProducer();
            Access::clearStream(*source);
            sendFrame(*producer);
        },
        "Fatal error: The stream source has no stream");
}

TEST_F(VideoStreamSourceFramesDeathTest, AMissingStreamEndsTheProcessWhenAFrameIsSent)
{
    EXPECT_DEATH(
        {
            Access::clearStream(*source);
            Access::setStreamingCounter(*source, 1);
            Access::sendDefaultFrame(*source);
        },
        "Fatal error: The stream source has no stream");
}

TEST_F(VideoStreamSourceFramesDeathTest, AFrameFromAnotherThreadThanTheFrameQueueEndsTheProcess)
{
    EXPECT_DEATH(source->frameServiceDidReceiveFrame(nullptr, makeTiming(0)), "BUG IN CLIENT OF LIBDISPATCH");
}

}  // namespace
}  // namespace pavo
