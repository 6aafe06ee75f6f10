// What is decided here and elsewhere left open.

#include <CoreMedia/CoreMedia.h>

#include <time.h>

#include <gtest/gtest.h>

#include <cmath>

#include "Tests/Frameworks/CoreVideo/Buffers.h"

namespace {

using pavo::test::makeBuffer;
using pavo::test::makeDictionary;
using pavo::test::makeNumber;

cf::Ref<CMFormatDescriptionRef> make(CFDictionaryRef extensions = nullptr)
{
    cf::Ref<CMFormatDescriptionRef> description;
    CMVideoFormatDescriptionCreate(kCFAllocatorDefault, kCVPixelFormatType_422YpCbCr8, 64, 48, extensions,
                                   description.receive());
    return description;
}

cf::Ref<CMFormatDescriptionRef> describe(CVImageBufferRef buffer)
{
    cf::Ref<CMFormatDescriptionRef> description;
    CMVideoFormatDescriptionCreateForImageBuffer(kCFAllocatorDefault, buffer, description.receive());
    return description;
}

TEST(CMClockLinux, IsTheMonotonicClockInNanoseconds)
{
    const auto monotonicNow = [] {
        timespec now{};
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
    };
    const auto before = monotonicNow();
    const auto time = CMClockGetTime(CMClockGetHostTimeClock());
    const auto after = monotonicNow();
    EXPECT_EQ(time.timescale, 1'000'000'000);
    EXPECT_GE(time.value, before);
    EXPECT_LE(time.value, after);
    EXPECT_EQ(time.flags, 1u);
    EXPECT_EQ(time.epoch, 0);
}

TEST(CMClockLinux, HasNoTimeWhereThereIsNoClock)
{
    EXPECT_TRUE(CMTIME_IS_INVALID(CMClockGetTime(nullptr)));
}

TEST(CMTimeLinux, TakesNoNumberForInvalid)
{
    EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeMakeWithSeconds(std::nan(""), 600)));
}

TEST(CMTimeLinux, TakesANumberWithoutATimescaleForInvalid)
{
    const auto broken = CMTimeMake(1, 0);
    EXPECT_TRUE(std::isnan(CMTimeGetSeconds(broken)));
    EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeAdd(broken, CMTimeMake(1, 1))));
    EXPECT_TRUE(CMTIME_IS_INVALID(CMTimeSubtract(CMTimeMake(1, 1), broken)));
    EXPECT_EQ(CMTimeCompare(broken, kCMTimeInvalid), 0);
}

TEST(CMFormatDescriptionLinux, WithoutBytesPerRowMatchesABufferOfAnyStride)
{
    const auto description = make();
    const auto padded = makeDictionary({{kCVPixelBufferBytesPerRowAlignmentKey, 256}});
    const auto plain = makeBuffer(64, 48, kCVPixelFormatType_422YpCbCr8);
    const auto aligned = makeBuffer(64, 48, kCVPixelFormatType_422YpCbCr8, padded.get());
    ASSERT_NE(CVPixelBufferGetBytesPerRow(plain.get()), CVPixelBufferGetBytesPerRow(aligned.get()));
    EXPECT_TRUE(CMVideoFormatDescriptionMatchesImageBuffer(description.get(), plain.get()));
    EXPECT_TRUE(CMVideoFormatDescriptionMatchesImageBuffer(description.get(), aligned.get()));
    EXPECT_FALSE(CMVideoFormatDescriptionMatchesImageBuffer(describe(plain.get()).get(), aligned.get()));
}

TEST(CMFormatDescriptionLinux, OfABufferHasItsBytesPerRowUnlessItIsPlanar)
{
    const auto packed = describe(makeBuffer(64, 48, kCVPixelFormatType_422YpCbCr8).get());
    const auto bytesPerRow =
        CMFormatDescriptionGetExtension(packed.get(), kCMFormatDescriptionExtension_BytesPerRow);
    ASSERT_NE(bytesPerRow, nullptr);
    EXPECT_TRUE(CFEqual(bytesPerRow, makeNumber(128).get()));
    const auto planar = describe(makeBuffer(64, 48, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange).get());
    EXPECT_EQ(CMFormatDescriptionGetExtensions(planar.get()), nullptr);
}

TEST(CMFormatDescriptionLinux, HasNoExtensionsWhereThereAreNone)
{
    EXPECT_EQ(CMFormatDescriptionGetExtensions(make().get()), nullptr);
    EXPECT_EQ(CMFormatDescriptionGetExtensions(make(makeDictionary({}).get()).get()), nullptr);
}

TEST(CMFormatDescriptionLinux, SaysWhyItCannotBeMade)
{
    const auto kept = make();
    CMFormatDescriptionRef description = kept.get();
    EXPECT_EQ(CMVideoFormatDescriptionCreate(kCFAllocatorDefault, 0, -1, 48, nullptr, &description),
              kCMFormatDescriptionError_InvalidParameter);
    EXPECT_EQ(description, nullptr);
    EXPECT_EQ(CMVideoFormatDescriptionCreate(kCFAllocatorDefault, 0, 64, -1, nullptr, &description),
              kCMFormatDescriptionError_InvalidParameter);
    description = kept.get();
    EXPECT_EQ(CMVideoFormatDescriptionCreateForImageBuffer(kCFAllocatorDefault, nullptr, &description),
              kCMFormatDescriptionError_InvalidParameter);
    EXPECT_EQ(description, nullptr);
}

TEST(CMFormatDescriptionLinux, OfNothingHasNothing)
{
    EXPECT_TRUE(CMFormatDescriptionEqual(nullptr, nullptr));
    EXPECT_EQ(CMFormatDescriptionGetMediaType(nullptr), 0u);
    EXPECT_EQ(CMFormatDescriptionGetMediaSubType(nullptr), 0u);
    EXPECT_EQ(CMFormatDescriptionGetExtensions(nullptr), nullptr);
    EXPECT_EQ(CMFormatDescriptionGetExtension(nullptr, CFSTR("key")), nullptr);
    EXPECT_EQ(CMVideoFormatDescriptionGetDimensions(nullptr).width, 0);
    EXPECT_FALSE(CMVideoFormatDescriptionMatchesImageBuffer(
        nullptr, makeBuffer(64, 48, kCVPixelFormatType_422YpCbCr8).get()));
    EXPECT_FALSE(CMVideoFormatDescriptionMatchesImageBuffer(make().get(), nullptr));
}

TEST(CMSampleBufferLinux, SaysWhatItMisses)
{
    const auto buffer = makeBuffer(64, 48, kCVPixelFormatType_422YpCbCr8);
    const auto description = make();
    const CMSampleTimingInfo timing = kCMTimingInfoInvalid;
    cf::Ref<CMSampleBufferRef> sample;
    const auto statusOf = [&sample](CVImageBufferRef image, CMFormatDescriptionRef format,
                                    const CMSampleTimingInfo* time) {
        return CMSampleBufferCreateReadyWithImageBuffer(kCFAllocatorDefault, image, format, time,
                                                        sample.receive());
    };
    EXPECT_EQ(statusOf(nullptr, description.get(), &timing), kCMSampleBufferError_RequiredParameterMissing);
    EXPECT_EQ(statusOf(buffer.get(), nullptr, &timing), kCMSampleBufferError_RequiredParameterMissing);
    EXPECT_EQ(statusOf(buffer.get(), description.get(), nullptr),
              kCMSampleBufferError_RequiredParameterMissing);
    EXPECT_EQ(CMSampleBufferCreateReadyWithImageBuffer(kCFAllocatorDefault, buffer.get(), description.get(),
                                                       &timing, nullptr),
              kCMSampleBufferError_RequiredParameterMissing);
    ASSERT_EQ(statusOf(buffer.get(), description.get(), &timing), noErr);
    EXPECT_EQ(CMSampleBufferGetSampleTimingInfo(sample.get(), 0, nullptr),
              kCMSampleBufferError_RequiredParameterMissing);
    EXPECT_FALSE(CMSampleBufferIsValid(nullptr));
    EXPECT_FALSE(CMSampleBufferDataIsReady(nullptr));
    EXPECT_EQ(CMSampleBufferGetNumSamples(nullptr), 0);
}

}  // namespace
