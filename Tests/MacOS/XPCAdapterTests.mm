// Connections and listeners: what the adapters ask of NSXPC, and the messages of the product's own protocols.
// What holds on every system is in the tests of the face.

#include "CMIOExtensionSupport/VideoFrameService.h"
#include "Platform/XPC/XPCConnection.h"
#include "Platform/XPC/XPCListener.h"
#include "Tests/MacOS/AdapterFixture.h"
#include "Tests/MacOS/Producer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>

namespace pavo::test {
namespace {

class Stranger;

}  // namespace
}  // namespace pavo::test

template <>
struct xpc::Protocol<pavo::test::Stranger> {
    static constexpr std::string_view name = "Tests.Stranger";
    using Adopts = xpc::Adopts<>;
    using Messages = xpc::Messages<>;
};

namespace pavo::test {
namespace {

using Receiving = VideoFrameProducerServiceReportReceiving;

class MockConsumer : public VideoFrameConsumerService {
public:
    MOCK_METHOD(void, didRecieveRawFrame, (IOSurfaceRef, CMSampleTimingInfo), (override));
    MOCK_METHOD(void, targetFPSChangedTo, (double), (override));
    virtual ~MockConsumer() = default;
};

class XPCAdapter : public AdapterTest {
protected:
    std::shared_ptr<xpc::Connection> makeConnection() const
    {
        return xpc::Connection::withMachServiceName("com.tarnwell.test");
    }
    // The system's object behind the only connection.
    static NSXPCConnection* system()
    {
        const auto all = connections();
        return all.size() == 1 ? all[0] : nil;
    }
};

TEST_F(XPCAdapter, DialsANameInTheProcesssOwnNamespace)
{
    const auto connection = makeConnection();
    EXPECT_STREQ(system().serviceName.UTF8String, "com.tarnwell.test");
    EXPECT_EQ(system().options, 0U);
    EXPECT_FALSE(system().isResumed);
    connection->resume();
    EXPECT_TRUE(system().isResumed);
}

TEST_F(XPCAdapter, DialsAListenersEndpoint)
{
    const auto listener = xpc::Listener::anonymousListener();
    const auto connection = xpc::Connection::withListenerEndpoint(listener->endpoint());
    EXPECT_EQ(system().endpoint.listener, listeners().at(0));
}

TEST_F(XPCAdapter, SendsEveryMessageWithItsArguments)
{
    const auto connection = makeConnection();
    PavoProducer* const producer = [[PavoProducer alloc] init];
    system().peer = producer;
    connection->setRemoteObjectInterface(xpc::describe<Receiving>());
    const auto remote = xpc::Remote<Receiving>::cast(connection->remoteObjectProxy());
    ASSERT_TRUE(remote);
    remote->send<&Receiving::subconsumerSubscriptionWithPID>(std::int32_t{-5}, true);
    remote->send<&Receiving::subconsumerSubscriptionWithPID>(std::int32_t{0x7FFFFFFF}, false);
    remote->send<&VideoFrameProducerService::subscribeToVideoFrames>();
    remote->send<&VideoFrameProducerService::unsubscribeFromVideoFrames>();
    EXPECT_EQ([producer received], (Strings{"-5 yes", "2147483647 no", "subscribe", "unsubscribe"}));
}

// The consumer's protocol in the other direction: a producer that is written with these faces.
TEST_F(XPCAdapter, CarriesAFrameFromFaceToFace)
{
    const auto consumer = std::make_shared<testing::StrictMock<MockConsumer>>();
    const auto receiving = makeConnection();
    NSXPCConnection* const receivingObject = system();
    receiving->setExportedInterface(xpc::describe<VideoFrameConsumerService>());
    receiving->setExportedObject(xpc::exportObject<VideoFrameConsumerService>(consumer));
    const auto sending = makeConnection();
    connections().at(1).peer = receivingObject.exportedObject;
    sending->setRemoteObjectInterface(xpc::describe<VideoFrameConsumerService>());
    const auto remote = xpc::Remote<VideoFrameConsumerService>::cast(sending->remoteObjectProxy());
    ASSERT_TRUE(remote);

    const auto properties = cf::adopt(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    const std::int64_t size = 16;
    const auto number = cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &size));
    CFDictionarySetValue(properties.get(), kIOSurfaceWidth, number.get());
    CFDictionarySetValue(properties.get(), kIOSurfaceHeight, number.get());
    const auto surface = cf::adopt(IOSurfaceCreate(properties.get()));
    ASSERT_TRUE(surface);
    const CMSampleTimingInfo timing = {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, -12}};
    const auto isSame = [&timing](const CMSampleTimingInfo& other) {
        return std::memcmp(&timing, &other, sizeof(timing)) == 0;
    };
    EXPECT_CALL(*consumer, didRecieveRawFrame(surface.get(), testing::Truly(isSame)));
    EXPECT_CALL(*consumer, targetFPSChangedTo(23.976));
    remote->send<&VideoFrameConsumerService::didRecieveRawFrame>(surface.get(), timing);
    remote->send<&VideoFrameConsumerService::targetFPSChangedTo>(23.976);
    EXPECT_EQ(CFGetRetainCount(surface.get()), 1);
}

TEST_F(XPCAdapter, ExportedObjectIsKeptAndLetGo)
{
    auto consumer = std::make_shared<testing::NiceMock<MockConsumer>>();
    const std::weak_ptr<MockConsumer> weak = consumer;
    const auto connection = makeConnection();
    connection->setExportedInterface(xpc::describe<VideoFrameConsumerService>());
    @autoreleasepool {
        connection->setExportedObject(xpc::exportObject<VideoFrameConsumerService>(std::move(consumer)));
    }
    EXPECT_FALSE(weak.expired());
    connection->setExportedObject({});
    EXPECT_EQ(system().exportedObject, nil);
    EXPECT_TRUE(weak.expired());
}

TEST_F(XPCAdapter, EndpointCarriesThePortAtOffset24)
{
    const auto listener = xpc::Listener::anonymousListener();
    const auto first = listener->endpoint();
    const auto second = listener->endpoint();
    EXPECT_NE(first.object(), second.object());
    EXPECT_EQ(xpc::ListenerEndpoint::machPort(first.object()), listeners().at(0).port);
    EXPECT_EQ(xpc::ListenerEndpoint::machPort(second.object()), listeners().at(0).port);
    EXPECT_EQ(xpc::ListenerEndpoint::machPort(nullptr), 0U);
}

TEST_F(XPCAdapter, InvalidatedListenerIsLetGo)
{
    @autoreleasepool {
        const auto listener = xpc::Listener::anonymousListener();
        listener->resume();
        listener->invalidate();
    }
    EXPECT_TRUE(listeners().empty());
}

class XPCAdapterDeathTest : public XPCAdapter {
protected:
    XPCAdapterDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(XPCAdapterDeathTest, ProtocolsThatWereNotCompiledAreFatal)
{
    const auto connection = makeConnection();
    EXPECT_DEATH(connection->setRemoteObjectInterface(xpc::describe<Stranger>()),
                 "Fatal error: No Objective-C protocol was compiled for Tests.Stranger");
}

TEST_F(XPCAdapterDeathTest, ObjectsOfAProtocolThatIsOnlySentAreNotExported)
{
    const auto connection = makeConnection();
    const xpc::ExportedObject object{std::make_shared<int>(), &xpc::describe<Receiving>()};
    EXPECT_DEATH(connection->setExportedObject(object),
                 "Fatal error: Objects of this protocol are not exported");
}

}  // namespace
}  // namespace pavo::test
