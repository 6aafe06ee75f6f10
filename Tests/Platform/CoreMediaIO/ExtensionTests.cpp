#include "Platform/CoreMediaIO/CMIOExtensionProvider.h"
#include "Platform/CoreMediaIO/linux/CMIOExtensionImpl.h"
#include "Tests/Platform/CoreMediaIO/Pictures.h"
#include "Tests/Platform/CoreMediaIO/Sources.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace cmio {
namespace {

cf::Ref<CMSampleBufferRef> makeSample()
{
    const auto picture = test::makePicture(kCVPixelFormatType_422YpCbCr8, 4, 4, {0, 0, 0});
    cf::Ref<CMFormatDescriptionRef> format;
    CMVideoFormatDescriptionCreateForImageBuffer(kCFAllocatorDefault, picture.get(), format.receive());
    cf::Ref<CMSampleBufferRef> sample;
    const CMSampleTimingInfo timing = kCMTimingInfoInvalid;
    CMSampleBufferCreateReadyWithImageBuffer(kCFAllocatorDefault, picture.get(), format.get(), &timing,
                                             sample.receive());
    return sample;
}

TEST(ExtensionProvider, MakesASerialQueueWhereNoneIsGiven)
{
    const auto provider = ExtensionProvider::create({}, nullptr);
    EXPECT_NE(provider->impl().clientQueue.get(), nullptr);
}

TEST(ExtensionProviderDeathTest, IsTheOnlyOne)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto provider = ExtensionProvider::create({}, nullptr);
    EXPECT_DEATH((void)ExtensionProvider::create({}, nullptr),
                 "Fatal error: There should be only one CMIOProvider per extension.");
}

TEST(ExtensionStreamDeathTest, SendsNothingAsASink)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto stream = test::makeStream(ExtensionStreamDirection::sink);
    const auto sample = makeSample();
    EXPECT_DEATH(stream->sendSampleBuffer(sample.get(), ExtensionStreamDiscontinuityFlags::none, 0),
                 "Fatal error: A sink stream sends no samples");
}

// Keeps what a stream sends.
class RecordingSink final : public SampleSink {
public:
    void send(OutgoingSample sample) override { samples.push_back(std::move(sample)); }

    std::vector<OutgoingSample> samples;
};

TEST(ExtensionStream, SendsNothingWithoutStreamingClients)
{
    const auto stream = test::makeStream();
    const auto sink = std::make_shared<RecordingSink>();
    stream->impl().sink.store(sink);
    stream->sendSampleBuffer(makeSample().get(), ExtensionStreamDiscontinuityFlags::none, 1);
    EXPECT_TRUE(sink->samples.empty());
}

TEST(ExtensionStream, SendsTimeAndDiscontinuityWithASample)
{
    const auto stream = test::makeStream();
    const auto sink = std::make_shared<RecordingSink>();
    stream->impl().sink.store(sink);
    stream->impl().clients.set({{ns::UUID::random(), 1}});
    const auto sample = makeSample();
    stream->sendSampleBuffer(sample.get(), ExtensionStreamDiscontinuityFlags::none, 12);
    stream->sendSampleBuffer(sample.get(), ExtensionStreamDiscontinuityFlags::time, 0);
    ASSERT_EQ(sink->samples.size(), 2U);
    EXPECT_EQ(sink->samples[0].sample.get(), sample.get());
    EXPECT_EQ(sink->samples[0].hostTimeNanoseconds, 12U);
    EXPECT_FALSE(sink->samples[0].isDiscontinuous);
    EXPECT_TRUE(sink->samples[1].isDiscontinuous);
}

TEST(ExtensionStream, SendsNothingBeforeItIsPublished)
{
    const auto stream = test::makeStream();
    stream->impl().clients.set({{ns::UUID::random(), 1}});
    const auto sample = makeSample();
    stream->sendSampleBuffer(sample.get(), ExtensionStreamDiscontinuityFlags::none, 12);
    EXPECT_EQ(CFGetRetainCount(sample.get()), 1);
}

}  // namespace
}  // namespace cmio
