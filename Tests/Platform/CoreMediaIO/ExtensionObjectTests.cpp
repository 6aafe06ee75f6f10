// What holds for providers, devices and streams on every system.

#include "Platform/CoreMediaIO/CMIOExtensionProvider.h"
#include "Tests/Platform/CoreMediaIO/Sources.h"
#include "Tests/Platform/CoreMediaIO/StreamingClients.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace cmio {
namespace {

const ns::Error kParameterError{ns::NSOSStatusErrorDomain, -50};

std::shared_ptr<ExtensionDevice> makeDevice()
{
    return ExtensionDevice::create("Device", ns::UUID::random(), "Legacy", {});
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
    const auto stream = test::makeStream();
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

TEST(StreamingClients, AreThoseThatStreamNow)
{
    const auto stream = test::makeStream();
    EXPECT_TRUE(stream->streamingClients().empty());
    const std::vector<ExtensionClient> clients = {{ns::UUID::random(), 1}, {ns::UUID::random(), 2}};
    test::setStreamingClients(*stream, clients);
    EXPECT_EQ(stream->streamingClients(), clients);
}

TEST(StreamingClients, TellsObserversTheNewValueOnly)
{
    const auto stream = test::makeStream();
    std::vector<std::size_t> sizes;
    const auto observation = stream->observeStreamingClients(
        [&sizes](const auto& change) { sizes.push_back(change.newValue ? change.newValue->size() : 99); });
    EXPECT_TRUE(sizes.empty());
    test::setStreamingClients(*stream, {{ns::UUID::random(), 1}});
    test::setStreamingClients(*stream, {});
    EXPECT_EQ(sizes, (std::vector<std::size_t>{1, 0}));
}

TEST(StreamingClients, TellsNothingAfterTheObservationEnds)
{
    const auto stream = test::makeStream();
    int calls = 0;
    {
        const auto observation = stream->observeStreamingClients([&calls](const auto&) { ++calls; });
        test::setStreamingClients(*stream, {});
    }
    test::setStreamingClients(*stream, {});
    EXPECT_EQ(calls, 1);
}

TEST(StreamingClients, LetsAnObserverEndItselfAndOthersWhileItIsCalled)
{
    const auto stream = test::makeStream();
    int calls = 0;
    ns::KeyValueObservation own;
    ns::KeyValueObservation other;
    own = stream->observeStreamingClients([&](const auto&) {
        ++calls;
        own = {};
        other = {};
    });
    other = stream->observeStreamingClients([&calls](const auto&) { calls += 100; });
    test::setStreamingClients(*stream, {});
    test::setStreamingClients(*stream, {});
    EXPECT_EQ(calls, 1);
}

TEST(StreamingClients, LetsAnObservationOutliveTheStream)
{
    auto stream = test::makeStream();
    auto observation = stream->observeStreamingClients([](const auto&) {});
    stream.reset();
    observation = {};
}

}  // namespace
}  // namespace cmio
