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

const ns::Error kParameterError{ns::NSOSStatusErrorDomain, -50};

std::shared_ptr<ExtensionStream>
makeStream(ExtensionStreamDirection direction = ExtensionStreamDirection::source)
{
    return ExtensionStream::create("Stream", ns::UUID::random(), direction,
                                   ExtensionStreamClockType::hostTime, {});
}

std::shared_ptr<ExtensionDevice> makeDevice()
{
    return ExtensionDevice::create("Device", ns::UUID::random(), "Legacy", {});
}

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

TEST(ExtensionProvider, TakesADeviceOnce)
{
    const auto provider = ExtensionProvider::create({}, nullptr);
    const auto device = makeDevice();
    ns::Error error;
    EXPECT_TRUE(provider->addDevice(device, &error));
    EXPECT_EQ(error, ns::Error{});
    EXPECT_FALSE(provider->addDevice(device, &error));
    EXPECT_EQ(error, kParameterError);
    EXPECT_TRUE(provider->addDevice(makeDevice(), nullptr));
}

TEST(ExtensionProvider, TakesNoNullDevice)
{
    const auto provider = ExtensionProvider::create({}, nullptr);
    ns::Error error;
    EXPECT_FALSE(provider->addDevice(nullptr, &error));
    EXPECT_EQ(error, kParameterError);
    EXPECT_FALSE(provider->addDevice(nullptr, nullptr));
}

TEST(ExtensionDevice, TakesAStreamOnce)
{
    const auto device = makeDevice();
    const auto stream = makeStream();
    ns::Error error;
    EXPECT_TRUE(device->addStream(stream, &error));
    EXPECT_FALSE(device->addStream(stream, &error));
    EXPECT_EQ(error, kParameterError);
}

TEST(ExtensionDevice, TakesNoNullStream)
{
    ns::Error error;
    EXPECT_FALSE(makeDevice()->addStream(nullptr, &error));
    EXPECT_EQ(error, kParameterError);
}

TEST(ExtensionProvider, DoesNotCallItsSourceBeforeItIsStarted)
{
    const auto source = std::make_shared<testing::StrictMock<test::MockProviderSource>>();
    const auto provider = ExtensionProvider::create(source, nullptr);
    provider->addDevice(makeDevice(), nullptr);
}

TEST(ExtensionProvider, KeepsItsSourceWeakly)
{
    auto source = std::make_shared<testing::NiceMock<test::MockProviderSource>>();
    const std::weak_ptr<test::MockProviderSource> weak = source;
    const auto provider = ExtensionProvider::create(source, nullptr);
    source.reset();
    EXPECT_TRUE(weak.expired());
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
    const auto stream = makeStream(ExtensionStreamDirection::sink);
    const auto sample = makeSample();
    EXPECT_DEATH(stream->sendSampleBuffer(sample.get(), ExtensionStreamDiscontinuityFlags::none, 0),
                 "Fatal error: A sink stream sends no samples");
}

// Keeps what a stream sends.
class RecordingSink : public SampleSink {
public:
    void send(OutgoingSample sample) override { samples.push_back(std::move(sample)); }

    std::vector<OutgoingSample> samples;
};

TEST(ExtensionStream, SendsNothingWithoutStreamingClients)
{
    const auto stream = makeStream();
    const auto sink = std::make_shared<RecordingSink>();
    stream->impl().sink.store(sink);
    stream->sendSampleBuffer(makeSample().get(), ExtensionStreamDiscontinuityFlags::none, 1);
    EXPECT_TRUE(sink->samples.empty());
}

TEST(ExtensionStream, SendsTimeAndDiscontinuityWithASample)
{
    const auto stream = makeStream();
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
    const auto stream = makeStream();
    stream->impl().clients.set({{ns::UUID::random(), 1}});
    const auto sample = makeSample();
    stream->sendSampleBuffer(sample.get(), ExtensionStreamDiscontinuityFlags::none, 12);
    EXPECT_EQ(CFGetRetainCount(sample.get()), 1);
}

TEST(StreamingClientList, TellsObserversTheNewValueOnly)
{
    const auto stream = makeStream();
    std::vector<std::size_t> sizes;
    const auto observation = stream->observeStreamingClients(
        [&sizes](const auto& change) { sizes.push_back(change.newValue ? change.newValue->size() : 99); });
    EXPECT_TRUE(sizes.empty());
    stream->impl().clients.set({{ns::UUID::random(), 1}});
    stream->impl().clients.set({});
    EXPECT_EQ(sizes, (std::vector<std::size_t>{1, 0}));
}

TEST(StreamingClientList, TellsNothingAfterTheObservationEnds)
{
    const auto stream = makeStream();
    int calls = 0;
    {
        const auto observation = stream->observeStreamingClients([&calls](const auto&) { ++calls; });
        stream->impl().clients.set({});
    }
    stream->impl().clients.set({});
    EXPECT_EQ(calls, 1);
}

TEST(StreamingClientList, LetsAnObserverEndItselfAndOthersWhileItIsCalled)
{
    const auto stream = makeStream();
    int calls = 0;
    ns::KeyValueObservation own;
    ns::KeyValueObservation other;
    own = stream->observeStreamingClients([&](const auto&) {
        ++calls;
        own = {};
        other = {};
    });
    other = stream->observeStreamingClients([&calls](const auto&) { calls += 100; });
    stream->impl().clients.set({});
    stream->impl().clients.set({});
    EXPECT_EQ(calls, 1);
}

TEST(StreamingClientList, LetsAnObservationOutliveTheStream)
{
    auto stream = makeStream();
    auto observation = stream->observeStreamingClients([](const auto&) {});
    stream.reset();
    observation = {};
}

}  // namespace
}  // namespace cmio
