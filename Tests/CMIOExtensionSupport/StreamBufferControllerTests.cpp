#include "CMIOExtensionSupport/StreamBufferHelper.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "Tests/Support/RecordingInterceptor.h"

namespace {

constexpr std::uint64_t kMaxTicks = std::numeric_limits<std::uint64_t>::max();

// The clock, and what the C functions answer instead of doing their work.
struct Platform {
    std::uint64_t ticks = 5'000'000'000;
    mach_timebase_info_data_t timebase = {1, 1};
    int timebaseCount = 0;
    int createCount = 0;
    std::optional<OSStatus> createStatus;
    std::optional<OSStatus> createForImageBufferStatus;
};
Platform platform;

}  // namespace

extern "C" std::uint64_t __wrap_mach_absolute_time()
{
    return platform.ticks;
}

extern "C" kern_return_t __wrap_mach_timebase_info(mach_timebase_info_t info)
{
    ++platform.timebaseCount;
    *info = platform.timebase;
    return KERN_SUCCESS;
}

extern "C" OSStatus __real_CMVideoFormatDescriptionCreate(CFAllocatorRef allocator,
                                                          CMVideoCodecType codecType, std::int32_t width,
                                                          std::int32_t height, CFDictionaryRef extensions,
                                                          CMVideoFormatDescriptionRef* formatDescriptionOut);
extern "C" OSStatus __wrap_CMVideoFormatDescriptionCreate(CFAllocatorRef allocator,
                                                          CMVideoCodecType codecType, std::int32_t width,
                                                          std::int32_t height, CFDictionaryRef extensions,
                                                          CMVideoFormatDescriptionRef* formatDescriptionOut)
{
    ++platform.createCount;
    if (platform.createStatus) return *platform.createStatus;
    return __real_CMVideoFormatDescriptionCreate(allocator, codecType, width, height, extensions,
                                                 formatDescriptionOut);
}

extern "C" OSStatus
__real_CMVideoFormatDescriptionCreateForImageBuffer(CFAllocatorRef allocator, CVImageBufferRef imageBuffer,
                                                    CMVideoFormatDescriptionRef* formatDescriptionOut);
extern "C" OSStatus
__wrap_CMVideoFormatDescriptionCreateForImageBuffer(CFAllocatorRef allocator, CVImageBufferRef imageBuffer,
                                                    CMVideoFormatDescriptionRef* formatDescriptionOut)
{
    if (platform.createForImageBufferStatus) return *platform.createForImageBufferStatus;
    return __real_CMVideoFormatDescriptionCreateForImageBuffer(allocator, imageBuffer, formatDescriptionOut);
}

namespace pavo {

struct StreamBufferControllerTestAccess {
    static void setSequenceNumber(StreamBufferController& controller, std::uint64_t number)
    {
        controller.sequenceNumber_ = number;
    }
};

namespace {

using test::RecordedMessage;
using test::RecordingInterceptor;

class RecordingDelegate final : public StreamBufferControllerDelegate {
public:
    void streamBufferControllerDidUpdate(StreamBufferController& controller) override
    {
        updated.push_back(&controller);
        rate = controller.frameRate();
        format = controller.formatDescription();
    }

    std::vector<const StreamBufferController*> updated;
    double rate = 0.0;  // as they were at the last update
    cf::Ref<CMFormatDescriptionRef> format;
};

cf::Ref<CVPixelBufferRef> makeBuffer(std::size_t width, std::size_t height,
                                     OSType format = kCVPixelFormatType_422YpCbCr8)
{
    cf::Ref<CVPixelBufferRef> buffer;
    CVPixelBufferCreate(kCFAllocatorDefault, width, height, format, nullptr, buffer.receive());
    return buffer;
}

CMSampleTimingInfo makeTiming(double seconds, double duration)
{
    return {CMTimeMakeWithSeconds(duration, 1'000'000), CMTimeMakeWithSeconds(seconds, 1'000'000),
            kCMTimeInvalid};
}

RecordedMessage message(const std::string& text, os_log_type_t type)
{
    return {text, "StreamBufferHelper", type};
}

class StreamBufferControllerTest : public testing::Test {
protected:
    StreamBufferControllerTest()
    {
        platform = {};
        GTEST_FLAG_SET(death_test_style, "threadsafe");
    }
    ~StreamBufferControllerTest() override { platform = {}; }

    RecordingInterceptor log_;
};
using StreamBufferControllerDeathTest = StreamBufferControllerTest;

TEST_F(StreamBufferControllerTest, StartsWithTheDefaultDescriptionAndThirtyFrames)
{
    const StreamBufferController controller;
    EXPECT_EQ(controller.frameRate(), 30.0);
    EXPECT_EQ(controller.sequenceNumber(), 0u);
    const auto description = controller.formatDescription().get();
    EXPECT_EQ(CMFormatDescriptionGetMediaSubType(description), 0x32767579u);
    EXPECT_EQ(CMVideoFormatDescriptionGetDimensions(description).width, 1920);
    EXPECT_EQ(CMVideoFormatDescriptionGetDimensions(description).height, 1080);
    EXPECT_EQ(CMFormatDescriptionGetExtensions(description), nullptr);
}

TEST_F(StreamBufferControllerTest, SharesTheDefaultDescriptionWithAllOthers)
{
    const StreamBufferController first;
    platform.createCount = 0;
    const StreamBufferController second;
    EXPECT_EQ(second.formatDescription().get(), first.formatDescription().get());
    EXPECT_EQ(platform.createCount, 0);
}

TEST_F(StreamBufferControllerDeathTest, EndsTheProcessWhenThereIsNoDefaultDescription)
{
    EXPECT_DEATH(
        {
            platform.createStatus = -12711;
            StreamBufferController();
        },
        "Fatal error: CMVideoFormatDescriptionCreate error: -12711");
}

TEST_F(StreamBufferControllerTest, GivesTheCachedDescriptionForABufferOfTheCurrentFormatWithoutLogging)
{
    StreamBufferController controller;
    const auto delegate = std::make_shared<RecordingDelegate>();
    controller.setDelegate(delegate);
    const auto current = controller.formatDescription();
    EXPECT_EQ(controller.formatDescriptionFor(makeBuffer(1920, 1080).get()).get(), current.get());
    EXPECT_TRUE(log_.messages().empty());
    EXPECT_TRUE(delegate->updated.empty());
}

TEST_F(StreamBufferControllerTest, LogsOnceForABufferOfAnotherSizeAndMatchesItAfterwards)
{
    StreamBufferController controller;
    const auto delegate = std::make_shared<RecordingDelegate>();
    controller.setDelegate(delegate);
    const auto buffer = makeBuffer(1280, 720);
    const auto description = controller.formatDescriptionFor(buffer.get());
    ASSERT_TRUE(description);
    EXPECT_EQ(CMVideoFormatDescriptionGetDimensions(description.get()).width, 1280);
    EXPECT_EQ(CMVideoFormatDescriptionGetDimensions(description.get()).height, 720);
    EXPECT_EQ(controller.formatDescription().get(), description.get());
    EXPECT_EQ(controller.formatDescriptionFor(makeBuffer(1280, 720).get()).get(), description.get());

    EXPECT_EQ(log_.messages(), std::vector{message("Updating format description", OS_LOG_TYPE_INFO)});
    EXPECT_EQ(delegate->updated, std::vector<const StreamBufferController*>{&controller});
    EXPECT_EQ(delegate->format.get(), description.get());
}

TEST_F(StreamBufferControllerTest, FollowsTheFormatOfTheBuffers)
{
    StreamBufferController controller;
    const auto description =
        controller.formatDescriptionFor(makeBuffer(1920, 1080, kCVPixelFormatType_32BGRA).get());
    EXPECT_EQ(CMFormatDescriptionGetMediaSubType(description.get()), FourCharCode{kCVPixelFormatType_32BGRA});
    EXPECT_EQ(CMFormatDescriptionGetMediaSubType(
                  controller.formatDescriptionFor(makeBuffer(1920, 1080).get()).get()),
              FourCharCode{kCVPixelFormatType_422YpCbCr8});
    EXPECT_EQ(log_.count("Updating format description"), 2u);
}

TEST_F(StreamBufferControllerTest, KeepsTheOldDescriptionWhenThereIsNoNewOne)
{
    StreamBufferController controller;
    const auto delegate = std::make_shared<RecordingDelegate>();
    controller.setDelegate(delegate);
    const auto current = controller.formatDescription();
    platform.createForImageBufferStatus = -12710;
    EXPECT_FALSE(controller.formatDescriptionFor(makeBuffer(1280, 720).get()));
    EXPECT_EQ(controller.formatDescription().get(), current.get());
    EXPECT_TRUE(delegate->updated.empty());
    EXPECT_EQ(log_.messages(),
              (std::vector{
                  message("Updating format description", OS_LOG_TYPE_INFO),
                  message("CMVideoFormatDescriptionCreateForImageBuffer error:-12710", OS_LOG_TYPE_ERROR)}));
}

TEST_F(StreamBufferControllerTest, TakesAMissingDescriptionForAFailureWhateverTheStatus)
{
    StreamBufferController controller;
    platform.createForImageBufferStatus = noErr;
    EXPECT_FALSE(controller.formatDescriptionFor(makeBuffer(1280, 720).get()));
    EXPECT_EQ(log_.count("CMVideoFormatDescriptionCreateForImageBuffer error:0"), 1u);
}

TEST_F(StreamBufferControllerTest, TellsTheDelegateOfEveryDescriptionThatIsSet)
{
    StreamBufferController controller;
    const auto delegate = std::make_shared<RecordingDelegate>();
    controller.setDelegate(delegate);
    controller.setFormatDescription(controller.formatDescription());
    controller.setFormatDescription(controller.formatDescription());
    EXPECT_EQ(delegate->updated.size(), 2u);
    EXPECT_TRUE(log_.messages().empty());
}

TEST_F(StreamBufferControllerTest, DoesNotCareForAFrameRateThatStaysTheSame)
{
    StreamBufferController controller;
    const auto delegate = std::make_shared<RecordingDelegate>();
    controller.setDelegate(delegate);
    controller.setFrameRate(30.0);
    EXPECT_TRUE(log_.messages().empty());
    EXPECT_TRUE(delegate->updated.empty());
}

TEST_F(StreamBufferControllerTest, LogsAndTellsTheDelegateOnceOfANewFrameRate)
{
    StreamBufferController controller;
    const auto delegate = std::make_shared<RecordingDelegate>();
    controller.setDelegate(delegate);
    controller.setFrameRate(60.0);
    EXPECT_EQ(controller.frameRate(), 60.0);
    EXPECT_EQ(log_.messages(),
              std::vector{message("Updating frame rate related properties", OS_LOG_TYPE_INFO)});
    EXPECT_EQ(delegate->updated, std::vector<const StreamBufferController*>{&controller});
    EXPECT_EQ(delegate->rate, 60.0);
}

TEST_F(StreamBufferControllerTest, WorksWithoutADelegateAndAfterItIsGone)
{
    StreamBufferController controller;
    controller.setFrameRate(60.0);
    {
        const auto delegate = std::make_shared<RecordingDelegate>();
        controller.setDelegate(delegate);
        EXPECT_EQ(delegate.use_count(), 1);
    }
    controller.setFrameRate(24.0);
    controller.setFormatDescription(controller.formatDescription());
    EXPECT_EQ(controller.frameRate(), 24.0);
}

TEST_F(StreamBufferControllerTest, CountsFramesAndStartsAgainAfterAReset)
{
    StreamBufferController controller;
    controller.setFrameRate(60.0);
    const auto description = controller.formatDescriptionFor(makeBuffer(1280, 720).get());
    controller.incrementSequenceNumber();
    controller.incrementSequenceNumber();
    EXPECT_EQ(controller.sequenceNumber(), 2u);
    controller.reset();
    EXPECT_EQ(controller.sequenceNumber(), 0u);
    EXPECT_EQ(controller.frameRate(), 60.0);
    EXPECT_EQ(controller.formatDescription().get(), description.get());
}

TEST_F(StreamBufferControllerDeathTest, EndsTheProcessWhenTheSequenceNumberOverflows)
{
    StreamBufferController controller;
    StreamBufferControllerTestAccess::setSequenceNumber(controller, kMaxTicks - 1);
    controller.incrementSequenceNumber();
    EXPECT_EQ(controller.sequenceNumber(), kMaxTicks);
    EXPECT_DEATH(controller.incrementSequenceNumber(), "Fatal error: The sequence number overflows");
}

TEST_F(StreamBufferControllerTest, MultipliesTheHostTimeBeforeItDivides)
{
    platform.ticks = 10;
    platform.timebase = {125, 3};
    StreamBufferController controller;
    EXPECT_EQ(controller.hostTimeNanoseconds(), 416u);
}

TEST_F(StreamBufferControllerTest, FetchesTheTimebaseOnce)
{
    StreamBufferController controller;
    EXPECT_EQ(controller.hostTimeNanoseconds(), 5'000'000'000u);
    EXPECT_EQ(controller.hostTimeNanoseconds(), 5'000'000'000u);
    EXPECT_EQ(platform.timebaseCount, 1);
}

TEST_F(StreamBufferControllerTest, TakesAnyHostTimeWhoseProductFits)
{
    platform.ticks = kMaxTicks / 125;
    platform.timebase = {125, 125};
    StreamBufferController controller;
    EXPECT_EQ(controller.hostTimeNanoseconds(), kMaxTicks / 125);
}

TEST_F(StreamBufferControllerDeathTest, EndsTheProcessWhenTheHostTimeOverflows)
{
    platform.ticks = kMaxTicks / 125 + 1;
    platform.timebase = {125, 125};
    StreamBufferController controller;
    EXPECT_DEATH(controller.hostTimeNanoseconds(), "Fatal error: The host time overflows");
}

TEST_F(StreamBufferControllerDeathTest, EndsTheProcessWhenTheTimebaseHasNoDenominator)
{
    platform.timebase = {1, 0};
    StreamBufferController controller;
    EXPECT_DEATH(controller.hostTimeNanoseconds(), "Fatal error: The host clock has no time base");
}

TEST_F(StreamBufferControllerTest, SpacesFramesNominallyWithoutProducerTiming)
{
    StreamBufferController controller;
    const auto first = controller.sampleTimingFor(std::nullopt);
    EXPECT_EQ(first.duration.value, 100);
    EXPECT_EQ(first.duration.timescale, 3000);
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(first.presentationTimeStamp), 5.0);
    EXPECT_EQ(first.presentationTimeStamp.timescale, 3000);
    EXPECT_TRUE(CMTIME_IS_INVALID(first.decodeTimeStamp));
    EXPECT_EQ(first.decodeTimeStamp.timescale, 0);

    // The clock goes on, but the frames count from the first one.
    platform.ticks += 123'456'789;
    controller.incrementSequenceNumber();
    controller.incrementSequenceNumber();
    const auto third = controller.sampleTimingFor(std::nullopt);
    EXPECT_EQ(third.presentationTimeStamp.timescale, 3000);
    const auto expected = CMTimeMakeWithSeconds(1.0 / 30.0 * 2.0 + 5.0, 3000);
    EXPECT_EQ(CMTimeCompare(third.presentationTimeStamp, expected), 0);
    EXPECT_NEAR(CMTimeGetSeconds(third.presentationTimeStamp), 5.0 + 2.0 / 30.0, 1.0 / 3000.0);
}

TEST_F(StreamBufferControllerTest, KeepsTheSpacingOfTheProducer)
{
    StreamBufferController controller;
    const auto first = controller.sampleTimingFor(makeTiming(100.0, 0.05));
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(first.presentationTimeStamp), 5.0);
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(first.duration), 0.05);
    // Neither the sequence number nor the clock counts.
    platform.ticks *= 2;
    controller.incrementSequenceNumber();
    const auto next = controller.sampleTimingFor(makeTiming(100.25, 0.05));
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(next.presentationTimeStamp), 5.25);
    const auto earlier = controller.sampleTimingFor(makeTiming(99.5, 0.05));
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(earlier.presentationTimeStamp), 4.5);
    EXPECT_EQ(earlier.presentationTimeStamp.timescale, 3000);
}

TEST_F(StreamBufferControllerTest, SpacesNominallyWhenTheFirstFrameHadNoProducerTiming)
{
    StreamBufferController controller;
    controller.sampleTimingFor(std::nullopt);
    controller.incrementSequenceNumber();
    const auto timing = controller.sampleTimingFor(makeTiming(100.0, 0.5));
    EXPECT_EQ(timing.duration.value, 100);
    EXPECT_NEAR(CMTimeGetSeconds(timing.presentationTimeStamp), 5.0 + 1.0 / 30.0, 1.0 / 3000.0);
}

TEST_F(StreamBufferControllerTest, SpacesNominallyWhenAFrameHasNoProducerTiming)
{
    StreamBufferController controller;
    controller.sampleTimingFor(makeTiming(100.0, 0.5));
    controller.incrementSequenceNumber();
    const auto timing = controller.sampleTimingFor(std::nullopt);
    EXPECT_EQ(timing.duration.value, 100);
    EXPECT_NEAR(CMTimeGetSeconds(timing.presentationTimeStamp), 5.0 + 1.0 / 30.0, 1.0 / 3000.0);
}

TEST_F(StreamBufferControllerTest, AnchorsTheTimingAnewAfterAReset)
{
    StreamBufferController controller;
    controller.sampleTimingFor(makeTiming(100.0, 0.05));
    controller.reset();
    platform.ticks = 9'000'000'000;
    const auto timing = controller.sampleTimingFor(makeTiming(200.0, 0.05));
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(timing.presentationTimeStamp), 9.0);
}

TEST_F(StreamBufferControllerTest, TakesItsTimescaleFromTheWholeFramesOfTheRate)
{
    StreamBufferController controller;
    controller.setFrameRate(59.94);
    EXPECT_EQ(controller.sampleTimingFor(std::nullopt).presentationTimeStamp.timescale, 5900);
    controller.setFrameRate(21474836.0);
    EXPECT_EQ(controller.sampleTimingFor(std::nullopt).duration.timescale, 2147483600);
}

TEST_F(StreamBufferControllerDeathTest, EndsTheProcessForAFrameRateOutOfRange)
{
    const auto use = [](double rate) {
        StreamBufferController controller;
        controller.setFrameRate(rate);
        controller.sampleTimingFor(std::nullopt);
    };
    EXPECT_DEATH(use(std::numeric_limits<double>::quiet_NaN()), "Fatal error: ");
    EXPECT_DEATH(use(std::numeric_limits<double>::infinity()), "Fatal error: ");
    EXPECT_DEATH(use(2147483648.0), "Fatal error: ");
    EXPECT_DEATH(use(-2147483649.0), "Fatal error: ");
    EXPECT_DEATH(use(21474837.0), "Fatal error: ");
}

}  // namespace

}  // namespace pavo
