#include <CoreMedia/CoreMedia.h>

#include <gtest/gtest.h>

#include "Tests/Frameworks/CoreVideo/Buffers.h"

namespace {

using pavo::test::makeBuffer;

static_assert(kCMSampleBufferError_InvalidMediaFormat == -12743);
static_assert(kCMSampleBufferError_RequiredParameterMissing == -12731);
static_assert(kCMSampleBufferError_SampleIndexOutOfRange == -12734);

cf::Ref<CMFormatDescriptionRef> describe(CVImageBufferRef buffer)
{
    cf::Ref<CMFormatDescriptionRef> description;
    CMVideoFormatDescriptionCreateForImageBuffer(kCFAllocatorDefault, buffer, description.receive());
    return description;
}

struct Frame {
    cf::Ref<CVPixelBufferRef> buffer = makeBuffer(64, 48, kCVPixelFormatType_422YpCbCr8);
    cf::Ref<CMFormatDescriptionRef> description = describe(buffer.get());
    CMSampleTimingInfo timing = {CMTimeMake(1, 60), CMTimeMake(5, 60), kCMTimeInvalid};

    OSStatus makeSample(cf::Ref<CMSampleBufferRef>& sample) const
    {
        return CMSampleBufferCreateReadyWithImageBuffer(kCFAllocatorDefault, buffer.get(), description.get(),
                                                        &timing, sample.receive());
    }
};

TEST(CMSampleBuffer, HasTheImageTheFormatAndTheTiming)
{
    const Frame frame;
    cf::Ref<CMSampleBufferRef> sample;
    ASSERT_EQ(frame.makeSample(sample), noErr);
    EXPECT_EQ(CFGetTypeID(sample.get()), CMSampleBufferGetTypeID());
    EXPECT_EQ(CMSampleBufferGetImageBuffer(sample.get()), frame.buffer.get());
    EXPECT_TRUE(
        CMFormatDescriptionEqual(CMSampleBufferGetFormatDescription(sample.get()), frame.description.get()));
    EXPECT_EQ(CMTimeCompare(CMSampleBufferGetPresentationTimeStamp(sample.get()), CMTimeMake(5, 60)), 0);
    EXPECT_EQ(CMTimeCompare(CMSampleBufferGetDuration(sample.get()), CMTimeMake(1, 60)), 0);
    EXPECT_EQ(CMSampleBufferGetNumSamples(sample.get()), 1);
    EXPECT_TRUE(CMSampleBufferIsValid(sample.get()));
    EXPECT_TRUE(CMSampleBufferDataIsReady(sample.get()));
}

TEST(CMSampleBuffer, GivesBackTheTimingOfItsOneSample)
{
    const Frame frame;
    cf::Ref<CMSampleBufferRef> sample;
    ASSERT_EQ(frame.makeSample(sample), noErr);
    CMSampleTimingInfo timing = kCMTimingInfoInvalid;
    ASSERT_EQ(CMSampleBufferGetSampleTimingInfo(sample.get(), 0, &timing), noErr);
    EXPECT_EQ(CMTimeCompare(timing.presentationTimeStamp, CMTimeMake(5, 60)), 0);
    EXPECT_EQ(CMTimeCompare(timing.duration, CMTimeMake(1, 60)), 0);
    EXPECT_TRUE(CMTIME_IS_INVALID(timing.decodeTimeStamp));
    EXPECT_EQ(CMSampleBufferGetSampleTimingInfo(sample.get(), 1, &timing),
              kCMSampleBufferError_SampleIndexOutOfRange);
}

TEST(CMSampleBuffer, TakesAnUnknownDuration)
{
    Frame frame;
    frame.timing.duration = CMTime{};
    frame.timing.decodeTimeStamp = CMTime{};
    cf::Ref<CMSampleBufferRef> sample;
    ASSERT_EQ(frame.makeSample(sample), noErr);
    EXPECT_TRUE(CMTIME_IS_INVALID(CMSampleBufferGetDuration(sample.get())));
}

TEST(CMSampleBuffer, KeepsItsImageAsLongAsItLives)
{
    Frame frame;
    const auto before = CFGetRetainCount(frame.buffer.get());
    {
        cf::Ref<CMSampleBufferRef> sample;
        ASSERT_EQ(frame.makeSample(sample), noErr);
        EXPECT_GT(CFGetRetainCount(frame.buffer.get()), before);
    }
    EXPECT_EQ(CFGetRetainCount(frame.buffer.get()), before);
}

TEST(CMSampleBuffer, RefusesADescriptionOfAnotherFormat)
{
    Frame frame;
    frame.description = describe(makeBuffer(128, 48, kCVPixelFormatType_422YpCbCr8).get());
    cf::Ref<CMSampleBufferRef> sample;
    EXPECT_EQ(frame.makeSample(sample), kCMSampleBufferError_InvalidMediaFormat);
    EXPECT_FALSE(sample);
}

TEST(CMSampleBuffer, HasTimingConstantsThatAreAllInvalid)
{
    EXPECT_TRUE(CMTIME_IS_INVALID(kCMTimingInfoInvalid.duration));
    EXPECT_TRUE(CMTIME_IS_INVALID(kCMTimingInfoInvalid.presentationTimeStamp));
    EXPECT_TRUE(CMTIME_IS_INVALID(kCMTimingInfoInvalid.decodeTimeStamp));
}

}  // namespace
