// The messages of the frame protocols as bytes, both ways.

#include "Tests/Support/Wait.h"
#include "Tests/Wire/WireDocument.h"
#include "Tests/Wire/WireFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <bit>
#include <limits>

namespace pavo::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

constexpr const char* kConsumer = "CMIOExtensionSupport.VideoFrameConsumerService";

RawCall rateCall(double rate)
{
    RawCall call;
    call.interface = kConsumer;
    call.member = "targetFPSChangedTo_";
    call.signature = "d";
    call.body = little(std::bit_cast<std::uint64_t>(rate));
    return call;
}

// The message in the other byte order. Its body is one number of 8 bytes.
std::string bigEndian(std::string message)
{
    const auto turn = [&message](std::size_t offset, std::size_t size) {
        const auto begin = message.begin() + static_cast<std::ptrdiff_t>(offset);
        std::reverse(begin, begin + static_cast<std::ptrdiff_t>(size));
    };
    const std::size_t bodyOffset = message.size() - 8;
    message[0] = 'B';
    for (const std::size_t offset : {4, 8, 12})
        turn(offset, 4);
    // Header fields: code, type "g", "o" or "s", and the value.
    for (std::size_t field = 16; field < bodyOffset; field = (field + 7) / 8 * 8) {
        const bool isSignature = message[field + 2] == 'g';
        const auto length = static_cast<unsigned char>(message[field + 4]);
        if (!isSignature) turn(field + 4, 4);
        field += 4 + (isSignature ? 1U : 4U) + length + 1U;
    }
    turn(bodyOffset, 8);
    return message;
}

TEST_F(WireTest, SubscriptionIsTheMessageOfTheDocumentsExample)
{
    const auto listings = WireDocument().listings();
    ASSERT_EQ(listings.size(), 2U);
    auto producer = connectProducer();
    camera->producer()->send<&VideoFrameProducerService::unsubscribeFromVideoFrames>();
    camera->producer()->send<&VideoFrameProducerService::subscribeToVideoFrames>();
    EXPECT_THAT(producer.receiveMessage(), HasSubstr("unsubscribeFromVideoFrames"));
    EXPECT_EQ(producer.receiveMessage(), listings[0]);
}

TEST_F(WireTest, FrameOfTheDocumentsExampleArrives)
{
    const auto listings = WireDocument().listings();
    ASSERT_EQ(listings.size(), 2U);
    auto producer = connectProducer();
    const auto surface = makeSurfaceByHand(0x5A);
    const int descriptor = surface.get();
    ASSERT_TRUE(producer.send(listings[1], {&descriptor, 1}));
    ASSERT_TRUE(waitFor([this] { return camera->frames().size() == 1; }));
    const auto frame = camera->frames().front();
    EXPECT_EQ(IOSurfaceGetWidth(frame.surface.get()), 64U);
    EXPECT_EQ(IOSurfaceGetHeight(frame.surface.get()), 48U);
    EXPECT_EQ(*static_cast<const std::uint8_t*>(IOSurfaceGetBaseAddress(frame.surface.get())), 0x5A);
    EXPECT_EQ(frame.timing.duration.value, 33333333);
    EXPECT_EQ(frame.timing.duration.timescale, 1000000000);
    EXPECT_EQ(frame.timing.duration.flags, kCMTimeFlags_Valid);
    EXPECT_EQ(frame.timing.presentationTimeStamp.value, 12907274168122);
    EXPECT_EQ(frame.timing.presentationTimeStamp.timescale, 1000000000);
    EXPECT_EQ(frame.timing.decodeTimeStamp.flags, 0U);
    EXPECT_EQ(frame.timing.decodeTimeStamp.value, 0);
}

TEST_F(WireTest, ReportOfAProcessHasItsNumberAndItsState)
{
    auto producer = connectProducer();
    constexpr auto kReport = &VideoFrameProducerServiceReportReceiving::subconsumerSubscriptionWithPID;
    camera->producer()->send<kReport>(std::int32_t{4711}, true);
    camera->producer()->send<kReport>(std::numeric_limits<std::int32_t>::max(), false);
    const auto came = producer.receiveMessage();
    EXPECT_THAT(came, HasSubstr("subconsumerSubscriptionWithPID_isSubscribedChangedTo_"));
    EXPECT_THAT(
        came, HasSubstr(std::string("CMIOExtensionSupport.VideoFrameProducerServiceReportReceiving\0", 62)));
    EXPECT_EQ(came[1], 1) << "a method call";
    EXPECT_EQ(came[2], 1) << "no reply expected";
    EXPECT_THAT(came, EndsWith(little(std::int32_t{4711}) + little(std::uint32_t{1})));
    EXPECT_THAT(producer.receiveMessage(),
                EndsWith(little(std::numeric_limits<std::int32_t>::max()) + little(std::uint32_t{0})));
}

TEST_F(WireTest, MessageInTheOtherByteOrderIsTaken)
{
    auto producer = connectProducer();
    ASSERT_TRUE(producer.send(bigEndian(rateCall(59.94).bytes())));
    ASSERT_TRUE(waitFor([this] { return camera->rates().size() == 1; }));
    EXPECT_THAT(camera->rates(), ElementsAre(59.94));
}

TEST_F(WireTest, RateMayBeAnyNumber)
{
    auto producer = connectProducer();
    constexpr double kInfinite = std::numeric_limits<double>::infinity();
    for (const double rate : {0.0, -1.0, 1e300, kInfinite})
        ASSERT_TRUE(producer.send(rateCall(rate).bytes()));
    ASSERT_TRUE(waitFor([this] { return camera->rates().size() == 4; }));
    EXPECT_THAT(camera->rates(), ElementsAre(0.0, -1.0, 1e300, kInfinite));
}

TEST_F(WireTest, ProducersOwnMessagesAreNotForTheCamera)
{
    auto producer = connectProducer();
    RawCall call;
    call.interface = "CMIOExtensionSupport.VideoFrameProducerService";
    call.member = "subscribeToVideoFrames";
    ASSERT_TRUE(producer.send(call.bytes()));
    EXPECT_TRUE(producer.waitForEnd());
}

TEST_F(WireTest, SelectorAsItIsWrittenInCodeIsNoMember)
{
    auto producer = connectProducer();
    auto call = rateCall(30);
    call.member = "targetFPSChangedTo:";
    ASSERT_TRUE(producer.send(call.bytes()));
    EXPECT_TRUE(producer.waitForEnd());
    EXPECT_THAT(camera->rates(), ElementsAre());
}

TEST_F(WireTest, FrameWithoutItsDescriptorIsThrownOut)
{
    auto producer = connectProducer();
    auto call = frameCall(kConsumer, "didRecieveRawFrame_timingInfo_");
    call.descriptorCount = 0;
    ASSERT_TRUE(producer.send(call.bytes()));
    EXPECT_TRUE(producer.waitForEnd());
    EXPECT_TRUE(camera->frames().empty());
}

TEST_F(WireTest, MessageWithSerialNumberZeroIsThrownOut)
{
    auto producer = connectProducer();
    auto bytes = rateCall(30).bytes();
    bytes.replace(8, 4, 4, '\0');
    ASSERT_TRUE(producer.send(bytes));
    EXPECT_TRUE(producer.waitForEnd());
    EXPECT_THAT(camera->rates(), ElementsAre());
}

TEST_F(WireTest, SerialNumberThatComesAgainIsTaken)
{
    auto producer = connectProducer();
    ASSERT_TRUE(producer.send(rateCall(24).bytes()));
    ASSERT_TRUE(producer.send(rateCall(25).bytes()));
    ASSERT_TRUE(waitFor([this] { return camera->rates().size() == 2; }));
    EXPECT_THAT(camera->rates(), ElementsAre(24.0, 25.0));
}

TEST_F(WireTest, UnknownHeaderFieldIsIgnored)
{
    auto producer = connectProducer();
    auto call = rateCall(50);
    call.unknownField = "of a later version";
    ASSERT_TRUE(producer.send(call.bytes()));
    ASSERT_TRUE(waitFor([this] { return camera->rates().size() == 1; }));
}

}  // namespace
}  // namespace pavo::test
