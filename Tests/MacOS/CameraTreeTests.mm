// The whole camera, as the system sees it: built and driven through Objective-C messages only.

#include "Bundle/mac/TWCMIOExtensionStubSupportEntryPointProtocol.h"
#include "CMIOExtensionSupport/BidirectionalXPCServiceServer.h"
#include "CMIOExtensionSupport/VideoFrameService.h"
#include "PavoLoggingSupport/Logger.h"
#include "Tests/MacOS/AdapterFixture.h"
#include "Tests/MacOS/Producer.h"
#include "Tests/Support/Wait.h"

#include <IOSurface/IOSurface.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace pavo::test {
namespace {

constexpr CMSampleTimingInfo kTiming = {{1, 30, 1, 0}, {2, 30, 1, 0}, {3, 30, 1, 0}};

cf::Ref<IOSurfaceRef> makeSurface(std::int64_t width, std::int64_t height)
{
    const auto properties = cf::adopt(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    const std::pair<CFStringRef, std::int64_t> entries[] = {
        {kIOSurfaceWidth, width},
        {kIOSurfaceHeight, height},
        {kIOSurfaceBytesPerElement, 4},
        {kIOSurfacePixelFormat, kCVPixelFormatType_32BGRA}};
    for (const auto& [key, value] : entries) {
        const auto number = cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
        CFDictionarySetValue(properties.get(), key, number.get());
    }
    return cf::adopt(IOSurfaceCreate(properties.get()));
}

class CameraTree : public AdapterTest {
protected:
    CameraTree()
    {
        setBundles(
            {{"/Camera", {"com.tarnwell.test", {{"configure-pavo-full.png", "/Camera/picture.png"}}}}});
        setMainBundle("/Camera");
        setBundleOfClasses("/Camera");
        setPicture("/Camera/picture.png", {3840, 2400});
    }

    void SetUp() override
    {
        entryPoint_ = [[objc_getClass("TWCMIOExtensionSupportEntryPoint") alloc] init];
        ASSERT_NE(entryPoint_, nil);
    }

    void TearDown() override
    {
        entryPoint_ = nil;
        for (NSXPCListener* const& listener : listeners())
            breakCycle(listener);
    }

    id<TWCMIOExtensionStubSupportEntryPointProtocol> entryPoint() const { return entryPoint_; }
    CMIOExtensionDevice* device() const { return objectsIn(provider().devices).at(0); }
    CMIOExtensionStream* stream() const { return objectsIn(device().streams).at(0); }
    NSXPCListener* listener() const { return listeners().at(0); }

    bool waitForSamples(std::size_t count) const
    {
        return waitFor([this, count] { return [stream() sentSamples].size() >= count; });
    }
    bool waitForMessages(PavoProducer* producer, const Strings& messages) const
    {
        return waitFor([producer, &messages] { return [producer received] == messages; });
    }
    id<VideoFrameConsumerService> consumer(NSXPCConnection* connection) const
    {
        return connection.exportedObject;
    }

private:
    // The camera's end of the frame service and its connection keep each other, until the process ends.
    static void breakCycle(NSXPCListener* listener)
    {
        using Server = BidirectionalXPCServiceServer<VideoFrameProducerServiceReportReceiving,
                                                     VideoFrameConsumerService>;
        void* const delegate = (__bridge void*)static_cast<id>(listener.delegate);
        const auto shared =
            static_cast<std::weak_ptr<xpc::ListenerDelegate>*>(objc::fieldOf(delegate, "_delegate"))->lock();
        auto* const server = dynamic_cast<Server*>(shared.get());
        ASSERT_NE(server, nullptr);
        server->setLocalObject(nullptr);
        server->setOnGainedConnection({});
        server->setOnLostConnection({});
    }

    id<TWCMIOExtensionStubSupportEntryPointProtocol> entryPoint_;
};

NSSet* keys(const std::vector<NSString*>& names)
{
    return makeSet({names.begin(), names.end()});
}

TEST_F(CameraTree, IsBuiltByTheEntryPointInOneOrder)
{
    auto calls = pavo::test::calls();
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls, (Strings{"provider init CMIOExtensionSupport.ProviderSource nil",
                              "device init Pavo Camera, 6CED8472-EA28-42FE-8359-2F441C1C12B5, Pavo, "
                              "CMIOExtensionSupport.VideoDeviceSource",
                              "image /Camera/picture.png", "anonymousListener", "bootstrap_register",
                              "listener resume",
                              "stream init Pavo Camera, direction 0, clock 0, "
                              "CMIOExtensionSupport.VideoStreamSource",
                              "addStream", "addDevice"}));
    EXPECT_FALSE(provider().isStarted);
}

TEST_F(CameraTree, RegistersTheListenersPortInTheParentNamespace)
{
    EXPECT_EQ(registrations(),
              (std::vector<Registration>{
                  {kParentNamespace, "com.tarnwell.macos.cam.avextension", listener().port}}));
}

TEST_F(CameraTree, IsPublishedByStartAndLeftAloneByStop)
{
    [entryPoint() stop];
    EXPECT_FALSE(provider().isStarted);
    [entryPoint() start];
    EXPECT_TRUE(provider().isStarted);
    [entryPoint() stop];
    [entryPoint() start];
    EXPECT_TRUE(provider().isStarted);
}

TEST_F(CameraTree, KnowsItsSourcesByTheNamesOfTheCamerasClasses)
{
    EXPECT_EQ([static_cast<id>(provider().source) class],
              objc_getClass("CMIOExtensionSupport.ProviderSource"));
    EXPECT_EQ([static_cast<id>(device().source) class],
              objc_getClass("CMIOExtensionSupport.VideoDeviceSource"));
    EXPECT_EQ([static_cast<id>(stream().source) class],
              objc_getClass("CMIOExtensionSupport.VideoStreamSource"));
}

TEST_F(CameraTree, WelcomesEveryClientAndSetsNoProperty)
{
    NSError* error = nil;
    const id<CMIOExtensionProviderSource> source = provider().source;
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ([source connectClient:makeClient(7) error:&error], YES);
    [source disconnectClient:makeClient(7)];
    EXPECT_EQ([source setProviderProperties:nil error:&error], YES);
    EXPECT_EQ([device().source setDeviceProperties:nil error:&error], YES);
    EXPECT_EQ([stream().source setStreamProperties:nil error:&error], YES);
    EXPECT_EQ([stream().source authorizedToStartStreamForClient:makeClient(7)], YES);
    EXPECT_EQ(error, nil);
}

TEST_F(CameraTree, AnswersForTheProvider)
{
    const id<CMIOExtensionProviderSource> source = provider().source;
    EXPECT_EQ(textsIn(source.availableProperties), (std::set<std::string>{"4cc_manu"}));
    NSError* error = nil;
    EXPECT_STREQ(
        [source providerPropertiesForProperties:keys({CMIOExtensionPropertyProviderManufacturer, @"else"})
                                          error:&error]
            .manufacturer.UTF8String,
        "Tarnwell");
    CMIOExtensionProviderProperties* const none = [source providerPropertiesForProperties:keys({@"else"})
                                                                                    error:&error];
    ASSERT_NE(none, nil);
    EXPECT_EQ(none.propertiesDictionary.count, 0U);
    EXPECT_EQ(error, nil);
}

TEST_F(CameraTree, AnswersForTheDevice)
{
    const id<CMIOExtensionDeviceSource> source = device().source;
    EXPECT_EQ(textsIn(source.availableProperties),
              (std::set<std::string>{"4cc_dflt", "4cc_modl", "4cc_tran"}));
    forgetCalls();
    CMIOExtensionDeviceProperties* const all =
        [source devicePropertiesForProperties:source.availableProperties error:nil];
    EXPECT_EQ(all.transportType.unsignedIntValue, 0x76697274U);
    EXPECT_STREQ(all.model.UTF8String, "Pavo Camera");
    NSNumber* const isDefault =
        all.propertiesDictionary[CMIOExtensionPropertyDeviceCanBeDefaultInputDevice].value;
    EXPECT_TRUE(isBoolean(isDefault));
    EXPECT_EQ(isDefault.boolValue, YES);
    EXPECT_EQ(calls(), (Strings{"setTransportType", "setModel", "setPropertyState 4cc_dflt"}));
    CMIOExtensionDeviceProperties* const model =
        [source devicePropertiesForProperties:keys({CMIOExtensionPropertyDeviceModel}) error:nil];
    EXPECT_EQ(model.propertiesDictionary.count, 1U);
    EXPECT_EQ(model.transportType, nil);
}

TEST_F(CameraTree, AnswersForTheStream)
{
    const id<CMIOExtensionStreamSource> source = stream().source;
    EXPECT_EQ(textsIn(source.availableProperties), (std::set<std::string>{"4cc_fdur", "4cc_fmti"}));
    CMIOExtensionStreamProperties* const all =
        [source streamPropertiesForProperties:source.availableProperties error:nil];
    EXPECT_EQ(all.activeFormatIndex.unsignedIntValue, 0U);
    const CMTime duration = CMTimeMakeFromDictionary((__bridge CFDictionaryRef)all.frameDuration);
    EXPECT_EQ(duration.value, 100);
    EXPECT_EQ(duration.timescale, 3000);
    EXPECT_EQ([source streamPropertiesForProperties:keys({}) error:nil].propertiesDictionary.count, 0U);
}

TEST_F(CameraTree, OffersOneFormat)
{
    const auto formats = objectsIn(stream().source.formats);
    ASSERT_EQ(formats.size(), 1U);
    CMIOExtensionStreamFormat* const format = formats[0];
    EXPECT_EQ(CMFormatDescriptionGetMediaSubType(format.formatDescription), FourCharCode{0x32767579});
    const auto dimensions = CMVideoFormatDescriptionGetDimensions(format.formatDescription);
    EXPECT_EQ(dimensions.width, 1920);
    EXPECT_EQ(dimensions.height, 1080);
    EXPECT_EQ(CMTimeCompare(format.maxFrameDuration, CMTimeMake(1, 30)), 0);
    EXPECT_EQ(CMTimeCompare(format.minFrameDuration, CMTimeMake(1, 30)), 0);
    EXPECT_EQ(format.validFrameDurations.count, 0U);
}

TEST_F(CameraTree, SendsThePlaceholderWhileClientsStreamAndNobodyProduces)
{
    forgetCalls();
    CMIOExtensionClient* const client = makeClient(7);
    EXPECT_TRUE([stream() sentSamples].empty());
    ASSERT_TRUE([stream() startClient:client]);
    ASSERT_TRUE(waitForSamples(2));
    [stream() stopClient:client];

    // Covers the frame: fitted by width, cut off equally above and below.
    EXPECT_EQ(calls().at(calls().size() - 2), "filter CILanczosScaleTransform");
    EXPECT_EQ(calls().back(), "render 0,-60 1920x1200 into 1920x1080");
    const auto sample = [stream() sentSamples].at(0);
    auto* const picture = CMSampleBufferGetImageBuffer(sample.sample.get());
    EXPECT_EQ(CVPixelBufferGetPixelFormatType(picture), OSType{kCVPixelFormatType_32BGRA});
    EXPECT_EQ(sample.discontinuity, CMIOExtensionStreamDiscontinuityFlagNone);
    const auto time = CMSampleBufferGetPresentationTimeStamp(sample.sample.get());
    EXPECT_EQ(sample.hostTimeNanoseconds, static_cast<std::uint64_t>(CMTimeGetSeconds(time) * 1e9));
    CVPixelBufferLockBaseAddress(picture, kCVPixelBufferLock_ReadOnly);
    EXPECT_EQ(*static_cast<unsigned char*>(CVPixelBufferGetBaseAddress(picture)), kRenderedByte);
    CVPixelBufferUnlockBaseAddress(picture, kCVPixelBufferLock_ReadOnly);
    EXPECT_TRUE(wasLogged("Starting stream! Yay :)"));
    EXPECT_TRUE(wasLogged("Stopping stream! Bye :'("));
}

TEST_F(CameraTree, ConfiguresAProducersConnectionInOneOrder)
{
    forgetCalls();
    PavoProducer* const producer = [[PavoProducer alloc] init];
    NSXPCConnection* const connection = [listener() connectPeer:producer];
    EXPECT_TRUE(connection.isResumed);
    EXPECT_EQ(calls(),
              (Strings{"setRemoteObjectInterface _TtP20CMIOExtensionSupport40VideoFrameProducerService"
                       "ReportReceiving_",
                       "setExportedInterface _TtP20CMIOExtensionSupport25VideoFrameConsumerService_",
                       "setExportedObject", "connection resume", "send unsubscribeFromVideoFrames"}));
    EXPECT_EQ([producer received], (Strings{"unsubscribe"}));
}

TEST_F(CameraTree, TellsTheProducerWhoStreams)
{
    PavoProducer* const producer = [[PavoProducer alloc] init];
    NSXPCConnection* const connection = [listener() connectPeer:producer];
    CMIOExtensionClient* const first = makeClient(100);
    CMIOExtensionClient* const second = makeClient(200);
    [stream() startClient:first];
    [stream() startClient:second];
    [stream() stopClient:first];
    [stream() stopClient:second];
    EXPECT_TRUE(waitForMessages(
        producer, {"unsubscribe", "subscribe", "100 yes", "200 yes", "100 no", "unsubscribe", "200 no"}));
    EXPECT_EQ(connection.peer, producer);
}

TEST_F(CameraTree, SendsAProducersFrameWithoutACopy)
{
    PavoProducer* const producer = [[PavoProducer alloc] init];
    NSXPCConnection* const connection = [listener() connectPeer:producer];
    CMIOExtensionClient* const client = makeClient(100);
    [stream() startClient:client];
    const auto surface = makeSurface(64, 48);
    [consumer(connection) didRecieveRawFrame:(__bridge IOSurface*)surface.get() timingInfo:kTiming];

    const auto isOurs = [&surface](const SentSample& sample) {
        return CVPixelBufferGetIOSurface(CMSampleBufferGetImageBuffer(sample.sample.get())) == surface.get();
    };
    ASSERT_TRUE(waitFor([this, &isOurs] {
        const auto samples = [stream() sentSamples];
        return std::any_of(samples.begin(), samples.end(), isOurs);
    }));
    EXPECT_TRUE(waitForMessages(producer, {"unsubscribe", "subscribe", "100 yes", "100 yes"}));
    [stream() stopClient:client];
}

TEST_F(CameraTree, DropsAFrameWithoutASurface)
{
    NSXPCConnection* const connection = [listener() connectPeer:[[PavoProducer alloc] init]];
    [consumer(connection) didRecieveRawFrame:nil timingInfo:kTiming];
    EXPECT_FALSE(wasLogged("Failed to get pixel buffer from IOSurface"));
    EXPECT_FALSE(connection.isInvalidated);
}

TEST_F(CameraTree, HearsTheTargetFrameRate)
{
    NSXPCConnection* const connection = [listener() connectPeer:[[PavoProducer alloc] init]];
    [consumer(connection) targetFPSChangedTo:59.94];
    EXPECT_TRUE(wasLogged("Target FPS changed to %{public}f"));
    EXPECT_TRUE(waitFor([] { return wasLogged("Frame rate changed to %{public}f"); }));
}

TEST_F(CameraTree, GoesBackToThePlaceholderWhenTheProducerIsLost)
{
    NSXPCConnection* const connection = [listener() connectPeer:[[PavoProducer alloc] init]];
    CMIOExtensionClient* const client = makeClient(100);
    [stream() startClient:client];
    const auto surface = makeSurface(64, 48);
    [consumer(connection) didRecieveRawFrame:(__bridge IOSurface*)surface.get() timingInfo:kTiming];
    ASSERT_TRUE(
        waitFor([] { return wasLogged("Sending existing subconsumers (count = %{public}d) to producer"); }));

    [connection failWithInvalidation];
    EXPECT_TRUE(waitFor([] { return wasLogged("Connection died. Swapping back to dead relay frame…"); }));
    EXPECT_TRUE(wasLogged("The XPC connection was invalidated"));
    EXPECT_EQ(connection.exportedObject, nil);
    [stream() forgetSamples];
    ASSERT_TRUE(waitForSamples(2));
    [stream() stopClient:client];
}

TEST_F(CameraTree, TreatsAnInterruptionAsALoss)
{
    NSXPCConnection* const connection = [listener() connectPeer:[[PavoProducer alloc] init]];
    [connection failWithInterruption];
    EXPECT_TRUE(wasLogged("The XPC connection was interrupted"));
    EXPECT_TRUE(waitFor([] { return wasLogged("Connection died. Swapping back to dead relay frame…"); }));
    [connection failWithInvalidation];
}

TEST_F(CameraTree, LogsConstantFormatsOfItsOwnImageWithTheirArguments)
{
    [stream() startClient:makeClient(100)];
    ASSERT_TRUE(waitFor([] {
        return wasLogged("Subconsumer state changed: %{public}d was %{public}@, reporting to producer");
    }));
    for (const auto& message : loggedMessages()) {
        EXPECT_TRUE(message.isOfThisImage) << message.format;
        const auto conversions = std::count(message.format.begin(), message.format.end(), '%');
        EXPECT_EQ(message.itemCount, conversions) << message.format;
    }
    [stream() stopClient:objectsIn(stream().streamingClients)[0]];
}

TEST_F(CameraTree, LogsABareFormatWhereThereAreMoreThanFiveArguments)
{
    const auto logger = Logger::plugin("Test");
    logger.log("%{public}d %{public}d %{public}d %{public}d %{public}d", 1, 2, 3, 4, 5);
    logger.log("%{public}d %{public}d %{public}d %{public}d %{public}d %{public}d", 1, 2, 3, 4, 5, 6);
    const auto messages = loggedMessages();
    EXPECT_EQ(messages.at(messages.size() - 2).itemCount, 5);
    EXPECT_EQ(messages.back().itemCount, 0);
}

TEST_F(CameraTree, LeavesNothingBehind)
{
    const auto surface = makeSurface(64, 48);
    @autoreleasepool {
        [entryPoint() start];
        NSXPCConnection* const connection = [listener() connectPeer:[[PavoProducer alloc] init]];
        CMIOExtensionClient* const client = makeClient(100);
        [stream() startClient:client];
        [consumer(connection) didRecieveRawFrame:(__bridge IOSurface*)surface.get() timingInfo:kTiming];
        ASSERT_TRUE(waitForSamples(1));
        [stream() stopClient:client];
        [connection failWithInvalidation];
    }
    // The fixture sees to it that every object is gone when the entry point is.
}

}  // namespace
}  // namespace pavo::test
