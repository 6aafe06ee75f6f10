// Each question that the framework asks, and each thing that it is told.

#include "Platform/CoreMediaIO/mac/CMIOConversions.h"
#include "Platform/CoreMediaIO/mac/CMIOExtensionImpl.h"
#include "Platform/CoreMediaIO/mac/CMIOSourceAdapters.h"
#include "Platform/Support/Dispatch.h"
#include "Tests/MacOS/AdapterFixture.h"
#include "Tests/Platform/CoreMediaIO/Sources.h"
#include "Tests/Platform/CoreMediaIO/StreamingClients.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <utility>

namespace cmio::test {

void setStreamingClients(ExtensionStream& stream, std::vector<ExtensionClient> clients)
{
    std::vector<id> objects;
    for (const auto& client : clients) {
        NSString* const text = pavo::test::makeString(client.clientID.uuidString());
        objects.push_back([[CMIOExtensionClient alloc] initWithID:[[NSUUID alloc] initWithUUIDString:text]
                                                              pid:client.pid]);
    }
    stream.impl().stream.streamingClients = pavo::test::makeArray(objects);
}

}  // namespace cmio::test

namespace pavo::test {
namespace {

using cmio::ExtensionClient;
using cmio::ExtensionProperties;
using testing::_;
using testing::DoAll;
using testing::Return;
using testing::SetArgPointee;
using testing::StrictMock;

const ns::Error kReason{"com.tarnwell.test", 42};
const std::set<std::string> kGoneAnswers;

class MockDeviceSource : public cmio::ExtensionDeviceSource {
public:
    MOCK_METHOD(cmio::ExtensionPropertySet, availableProperties, (), (const, override));
    MOCK_METHOD(std::optional<cmio::ExtensionDeviceProperties>, deviceProperties,
                (const cmio::ExtensionPropertySet&, ns::Error*), (override));
    MOCK_METHOD(bool, setDeviceProperties, (const cmio::ExtensionDeviceProperties&, ns::Error*), (override));
    virtual ~MockDeviceSource() = default;
};

std::string toText(const cmio::ExtensionPropertyState& state)
{
    if (const auto* text = std::get_if<std::string>(&state.value)) return *text;
    if (const auto* number = std::get_if<std::uint32_t>(&state.value)) return std::to_string(*number);
    return std::get<bool>(state.value) ? "yes" : "no";
}

MATCHER_P(Holds, dictionary, "")
{
    const ExtensionProperties::Dictionary& actual = arg.propertiesDictionary();
    return std::equal(actual.begin(), actual.end(), dictionary.begin(), dictionary.end(),
                      [](const auto& a, const auto& b) {
                          if (a.first != b.first || a.second.value.index() != b.second.value.index())
                              return false;
                          if (const auto* time = std::get_if<CMTime>(&a.second.value))
                              return CMTimeCompare(*time, std::get<CMTime>(b.second.value)) == 0;
                          return toText(a.second) == toText(b.second);
                      });
}

CMIOExtensionPropertyState* state(id value)
{
    return [[CMIOExtensionPropertyState alloc] initWithValue:value];
}

class CoreMediaIOAdapter : public AdapterTest {
protected:
    // As the framework would get them.
    id<CMIOExtensionProviderSource> providerSource() const
    {
        return cmio::sourceFactories.makeProviderSource({provider_});
    }
    id<CMIOExtensionDeviceSource> deviceSource() const
    {
        return cmio::sourceFactories.makeDeviceSource({device_});
    }
    id<CMIOExtensionStreamSource> streamSource() const
    {
        return cmio::sourceFactories.makeStreamSource({stream_});
    }
    static void expectReason(NSError* error, const ns::Error& reason)
    {
        ASSERT_NE(error, nil);
        EXPECT_EQ(error.domain.UTF8String, reason.domain);
        EXPECT_EQ(error.code, reason.code);
    }

    std::shared_ptr<StrictMock<cmio::test::MockProviderSource>> provider_ =
        std::make_shared<StrictMock<cmio::test::MockProviderSource>>();
    std::shared_ptr<StrictMock<MockDeviceSource>> device_ = std::make_shared<StrictMock<MockDeviceSource>>();
    std::shared_ptr<StrictMock<cmio::test::MockStreamSource>> stream_ =
        std::make_shared<StrictMock<cmio::test::MockStreamSource>>();
};

TEST_F(CoreMediaIOAdapter, TellsTheSourceWhichClientConnects)
{
    CMIOExtensionClient* const client = makeClient(77);
    ExtensionClient connected{ns::UUID::random(), 0};
    ExtensionClient disconnected = connected;
    EXPECT_CALL(*provider_, connectClient(_, _))
        .WillOnce(DoAll(testing::SaveArg<0>(&connected), Return(true)));
    EXPECT_CALL(*provider_, disconnectClient(_)).WillOnce(testing::SaveArg<0>(&disconnected));
    NSError* error = nil;
    EXPECT_EQ([providerSource() connectClient:client error:&error], YES);
    [providerSource() disconnectClient:client];
    EXPECT_EQ(connected.pid, 77);
    EXPECT_EQ(connected.clientID.uuidString(), client.clientID.UUIDString.UTF8String);
    EXPECT_EQ(disconnected, connected);
    EXPECT_EQ(error, nil);
}

TEST_F(CoreMediaIOAdapter, PassesTheReasonOfARefusalOn)
{
    EXPECT_CALL(*provider_, connectClient(_, _))
        .WillRepeatedly(DoAll(SetArgPointee<1>(kReason), Return(false)));
    EXPECT_CALL(*provider_, providerProperties(_, _))
        .WillOnce(DoAll(SetArgPointee<1>(kReason), Return(std::nullopt)));
    EXPECT_CALL(*device_, deviceProperties(_, _))
        .WillOnce(DoAll(SetArgPointee<1>(kReason), Return(std::nullopt)));
    EXPECT_CALL(*stream_, streamProperties(_, _))
        .WillOnce(DoAll(SetArgPointee<1>(kReason), Return(std::nullopt)));
    EXPECT_CALL(*stream_, startStream(_)).WillOnce(DoAll(SetArgPointee<0>(kReason), Return(false)));
    EXPECT_CALL(*stream_, stopStream(_)).WillOnce(DoAll(SetArgPointee<0>(kReason), Return(false)));
    __autoreleasing NSError* errors[6] = {};
    EXPECT_EQ([providerSource() connectClient:makeClient(1) error:&errors[0]], NO);
    EXPECT_EQ([providerSource() connectClient:makeClient(1) error:nullptr], NO);
    EXPECT_EQ([providerSource() providerPropertiesForProperties:makeSet({}) error:&errors[1]], nil);
    EXPECT_EQ([deviceSource() devicePropertiesForProperties:makeSet({}) error:&errors[2]], nil);
    EXPECT_EQ([streamSource() streamPropertiesForProperties:makeSet({}) error:&errors[3]], nil);
    EXPECT_EQ([streamSource() startStreamAndReturnError:&errors[4]], NO);
    EXPECT_EQ([streamSource() stopStreamAndReturnError:&errors[5]], NO);
    for (const auto& error : errors)
        expectReason(error, kReason);
}

TEST_F(CoreMediaIOAdapter, RefusesForASourceThatIsGone)
{
    const id<CMIOExtensionProviderSource> provider = providerSource();
    const id<CMIOExtensionDeviceSource> device = deviceSource();
    const id<CMIOExtensionStreamSource> stream = streamSource();
    provider_.reset();
    device_.reset();
    stream_.reset();
    NSError* error = nil;
    EXPECT_EQ([provider connectClient:makeClient(1) error:&error], NO);
    expectReason(error, {ns::NSOSStatusErrorDomain, -50});
    [provider disconnectClient:makeClient(1)];
    EXPECT_EQ([provider setProviderProperties:nil error:nullptr], NO);
    EXPECT_EQ([provider providerPropertiesForProperties:makeSet({}) error:nullptr], nil);
    EXPECT_EQ([device setDeviceProperties:nil error:nullptr], NO);
    EXPECT_EQ([device devicePropertiesForProperties:makeSet({}) error:nullptr], nil);
    EXPECT_EQ([stream setStreamProperties:nil error:nullptr], NO);
    EXPECT_EQ([stream streamPropertiesForProperties:makeSet({}) error:nullptr], nil);
    EXPECT_EQ([stream authorizedToStartStreamForClient:makeClient(1)], NO);
    EXPECT_EQ([stream startStreamAndReturnError:nullptr], NO);
    EXPECT_EQ([stream stopStreamAndReturnError:nullptr], NO);
    EXPECT_EQ(textsIn(provider.availableProperties), kGoneAnswers);
    EXPECT_EQ(textsIn(device.availableProperties), kGoneAnswers);
    EXPECT_EQ(textsIn(stream.availableProperties), kGoneAnswers);
    EXPECT_EQ(stream.formats.count, 0U);
}

TEST_F(CoreMediaIOAdapter, TranslatesTheNamesOfProperties)
{
    const cmio::ExtensionPropertySet names = {"CMIOExtensionPropertyDeviceModel", "something else"};
    EXPECT_CALL(*device_, availableProperties()).WillOnce(Return(names));
    EXPECT_CALL(*device_, deviceProperties(names, _)).WillOnce(Return(std::nullopt));
    NSSet* const keys = deviceSource().availableProperties;
    EXPECT_EQ(textsIn(keys), (std::set<std::string>{"4cc_modl", "something else"}));
    EXPECT_EQ([deviceSource() devicePropertiesForProperties:keys error:nullptr], nil);
}

TEST_F(CoreMediaIOAdapter, WritesTheStreamsPropertiesWithTheirClasses)
{
    cmio::ExtensionStreamProperties answer(ExtensionProperties::Dictionary{});
    answer.setActiveFormatIndex(3);
    answer.setFrameDuration(CMTimeMake(1, 25));
    EXPECT_CALL(*stream_, streamProperties(_, _)).WillOnce(Return(answer));
    CMIOExtensionStreamProperties* const result = [streamSource() streamPropertiesForProperties:makeSet({})
                                                                                          error:nullptr];
    EXPECT_EQ(calls(), (Strings{"setActiveFormatIndex", "setFrameDuration"}));
    EXPECT_EQ(result.activeFormatIndex.unsignedIntValue, 3U);
    EXPECT_FALSE(isBoolean(result.activeFormatIndex));
    EXPECT_EQ(CMTimeCompare(CMTimeMakeFromDictionary((__bridge CFDictionaryRef)result.frameDuration),
                            CMTimeMake(1, 25)),
              0);
}

TEST_F(CoreMediaIOAdapter, ReadsThePropertiesThatAreSet)
{
    CMIOExtensionProviderProperties* const provider =
        [[CMIOExtensionProviderProperties alloc] initWithDictionary:[NSDictionary dictionary]];
    provider.manufacturer = @"Somebody";
    EXPECT_CALL(
        *provider_,
        setProviderProperties(Holds(ExtensionProperties::Dictionary{
                                  {"CMIOExtensionPropertyProviderManufacturer", {std::string("Somebody")}}}),
                              _))
        .WillOnce(Return(true));
    EXPECT_EQ([providerSource() setProviderProperties:provider error:nullptr], YES);

    CMIOExtensionDeviceProperties* const device =
        [[CMIOExtensionDeviceProperties alloc] initWithDictionary:[NSDictionary dictionary]];
    device.model = @"Model";
    device.transportType = [NSNumber numberWithUnsignedInt:0xFFFFFFFF];
    [device setPropertyState:state([NSNumber numberWithBool:YES])
                 forProperty:CMIOExtensionPropertyDeviceCanBeDefaultInputDevice];
    EXPECT_CALL(*device_, setDeviceProperties(
                              Holds(ExtensionProperties::Dictionary{
                                  {"CMIOExtensionPropertyDeviceModel", {std::string("Model")}},
                                  {"CMIOExtensionPropertyDeviceTransportType", {std::uint32_t{0xFFFFFFFF}}},
                                  {"CMIOExtensionPropertyDeviceCanBeDefaultInputDevice", {true}}}),
                              _))
        .WillOnce(Return(true));
    EXPECT_EQ([deviceSource() setDeviceProperties:device error:nullptr], YES);

    CMIOExtensionStreamProperties* const stream =
        [[CMIOExtensionStreamProperties alloc] initWithDictionary:[NSDictionary dictionary]];
    stream.frameDuration = cmio::toObject(CMTimeMake(1, 50));
    EXPECT_CALL(*stream_,
                setStreamProperties(Holds(ExtensionProperties::Dictionary{
                                        {"CMIOExtensionPropertyStreamFrameDuration", {CMTimeMake(1, 50)}}}),
                                    _))
        .WillOnce(Return(true));
    EXPECT_EQ([streamSource() setStreamProperties:stream error:nullptr], YES);
}

TEST_F(CoreMediaIOAdapter, LeavesOutValuesOfAnotherClassAndUnknownProperties)
{
    CMIOExtensionStreamProperties* const stream =
        [[CMIOExtensionStreamProperties alloc] initWithDictionary:[NSDictionary dictionary]];
    [stream setPropertyState:state(@"text") forProperty:CMIOExtensionPropertyStreamActiveFormatIndex];
    [stream setPropertyState:state(@"text") forProperty:CMIOExtensionPropertyStreamFrameDuration];
    [stream setPropertyState:state(@"text") forProperty:CMIOExtensionPropertyDeviceCanBeDefaultInputDevice];
    [stream setPropertyState:state(makeArray({})) forProperty:CMIOExtensionPropertyDeviceModel];
    [stream setPropertyState:state(nil) forProperty:CMIOExtensionPropertyProviderManufacturer];
    [stream setPropertyState:state(@"text") forProperty:@"something else"];
    EXPECT_CALL(*stream_, setStreamProperties(Holds(ExtensionProperties::Dictionary{}), _))
        .WillOnce(Return(true));
    EXPECT_EQ([streamSource() setStreamProperties:stream error:nullptr], YES);
}

TEST_F(CoreMediaIOAdapter, DescribesFormatsTheLongestDurationFirst)
{
    cf::Ref<CMFormatDescriptionRef> description;
    CMVideoFormatDescriptionCreate(kCFAllocatorDefault, kCMVideoCodecType_422YpCbCr8, 8, 4, nullptr,
                                   description.receive());
    const cmio::ExtensionStreamFormat format{
        description, CMTimeMake(1, 10), CMTimeMake(1, 60), {CMTimeMake(1, 10), CMTimeMake(1, 60)}};
    EXPECT_CALL(*stream_, formats()).WillOnce(Return(std::vector{format}));
    const auto formats = objectsIn(streamSource().formats);
    ASSERT_EQ(formats.size(), 1U);
    CMIOExtensionStreamFormat* const object = formats[0];
    EXPECT_EQ(object.formatDescription, description.get());
    EXPECT_EQ(object.maxFrameDuration.timescale, 10);
    EXPECT_EQ(object.minFrameDuration.timescale, 60);
    const auto durations = objectsIn(object.validFrameDurations);
    ASSERT_EQ(durations.size(), 2U);
    EXPECT_EQ(CMTimeMakeFromDictionary((__bridge CFDictionaryRef)durations[1]).timescale, 60);
}

TEST_F(CoreMediaIOAdapter, SendsASampleWithItsTimeAndItsFlags)
{
    const auto stream =
        cmio::ExtensionStream::create("Stream", ns::UUID::random(), cmio::ExtensionStreamDirection::source,
                                      cmio::ExtensionStreamClockType::hostTime, {});
    cf::Ref<CVPixelBufferRef> picture;
    CVPixelBufferCreate(kCFAllocatorDefault, 4, 4, kCVPixelFormatType_32BGRA, nullptr, picture.receive());
    cf::Ref<CMFormatDescriptionRef> format;
    CMVideoFormatDescriptionCreateForImageBuffer(kCFAllocatorDefault, picture.get(), format.receive());
    cf::Ref<CMSampleBufferRef> sample;
    CMSampleBufferCreateReadyWithImageBuffer(kCFAllocatorDefault, picture.get(), format.get(),
                                             &kCMTimingInfoInvalid, sample.receive());
    stream->sendSampleBuffer(sample.get(), cmio::ExtensionStreamDiscontinuityFlags::sampleDropped, 12);
    const auto sent = [stream->impl().stream sentSamples];
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].sample.get(), sample.get());
    EXPECT_EQ(sent[0].discontinuity, CMIOExtensionStreamDiscontinuityFlagSampleDropped);
    EXPECT_EQ(sent[0].hostTimeNanoseconds, 12U);
}

TEST_F(CoreMediaIOAdapter, HandsTheClientQueueOn)
{
    const auto queue = dispatch::Queue::serial("com.tarnwell.test");
    const auto provider = cmio::ExtensionProvider::create(provider_, queue.get());
    EXPECT_EQ(pavo::test::provider().clientQueue, queue.get());
}

TEST_F(CoreMediaIOAdapter, TellsAnObserverThatTheClientsBecameNothing)
{
    const auto stream =
        cmio::ExtensionStream::create("Stream", ns::UUID::random(), cmio::ExtensionStreamDirection::source,
                                      cmio::ExtensionStreamClockType::hostTime, {});
    std::vector<bool> hasValue;
    const auto observation = stream->observeStreamingClients(
        [&hasValue](const auto& change) { hasValue.push_back(change.newValue.has_value()); });
    stream->impl().stream.streamingClients = nil;
    EXPECT_EQ(hasValue, (std::vector<bool>{false}));
}

TEST_F(CoreMediaIOAdapter, LetsAClosureGoWithItsObservation)
{
    const auto stream =
        cmio::ExtensionStream::create("Stream", ns::UUID::random(), cmio::ExtensionStreamDirection::source,
                                      cmio::ExtensionStreamClockType::hostTime, {});
    const auto held = std::make_shared<int>(1);
    {
        const auto observation = stream->observeStreamingClients([held](const auto&) {});
        EXPECT_GT(held.use_count(), 1);
    }
    EXPECT_EQ(held.use_count(), 1);
}

using CoreMediaIOAdapterDeathTest = CoreMediaIOAdapter;

TEST_F(CoreMediaIOAdapterDeathTest, SourcesHaveNoPlainInitializer)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const char* name : {"CMIOExtensionSupport.ProviderSource", "CMIOExtensionSupport.VideoDeviceSource",
                             "CMIOExtensionSupport.VideoStreamSource"})
        EXPECT_DEATH((void)[[objc_getClass(name) alloc] init],
                     "Fatal error: Use of unimplemented initializer 'init\\(\\)' for class '" +
                         std::string(name) + "'");
}

TEST_F(CoreMediaIOAdapterDeathTest, ObserverPassesOnWhatItDidNotAskFor)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto stream =
        cmio::ExtensionStream::create("Stream", ns::UUID::random(), cmio::ExtensionStreamDirection::source,
                                      cmio::ExtensionStreamClockType::hostTime, {});
    const auto observation = stream->observeStreamingClients([](const auto&) {});
    EXPECT_DEATH(tellObserversWithContext(stream->impl().stream, @"streamingClients", nullptr),
                 "A change was received but not handled: streamingClients");
}

}  // namespace
}  // namespace pavo::test
