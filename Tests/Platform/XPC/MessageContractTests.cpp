// What happens to messages on every system: what they carry, in what order they come, and whom they reach.

#include "Tests/Platform/XPC/XPCFixture.h"
#include "Tests/Support/Wait.h"

#include <limits>
#include <tuple>

namespace pavo::test {
namespace {

using Strings = std::vector<std::string>;

class XPCMessageContract : public XPCTest {
protected:
    // Both ends of a connection, resumed.
    std::shared_ptr<xpc::Connection> connect()
    {
        auto connection = connectByEndpoint();
        connection->setExportedInterface(xpc::describe<LampOwner>());
        connection->setExportedObject(xpc::exportObject<LampOwner>(owner));
        counts = countHandlers(*connection);
        endLater(connection);
        listener->resume();
        connection->resume();
        return connection;
    }

    const std::shared_ptr<RecordingOwner> owner = std::make_shared<RecordingOwner>();
    std::shared_ptr<HandlerCounts> counts;
};

void expectSameTime(const CMTime& time, const CMTime& expected)
{
    const auto fields = [](CMTime whole) {
        return std::tuple<std::int64_t, std::int32_t, std::uint32_t, std::int64_t>(
            whole.value, whole.timescale, whole.flags, whole.epoch);
    };
    EXPECT_EQ(fields(time), fields(expected));
}

TEST_F(XPCMessageContract, ArriveInTheOrderInWhichTheyWereSent)
{
    const auto connection = connect();
    Strings sent;
    for (int i = 0; i < 200; ++i) {
        lampOf(*connection).send<&Lamp::setColourIsFast>(i, i % 2 == 0);
        sent.push_back("setColour " + std::to_string(i) + (i % 2 == 0 ? " fast" : " slow"));
    }
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 200; }));
    EXPECT_EQ(house->lamp->calls(), sent);
}

TEST_F(XPCMessageContract, SentBeforeResumeGoOutAfterIt)
{
    listener->resume();
    const auto connection = connectByEndpoint();
    endLater(connection);
    lampOf(*connection).send<&Switching::switchOn>();
    lampOf(*connection).send<&Lamp::setBrightness>(0.5);
    EXPECT_EQ(house->acceptedCount(), 0U);
    connection->resume();
    lampOf(*connection).send<&Switching::switchOff>();
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 3; }));
    EXPECT_EQ(house->lamp->calls(), (Strings{"switchOn", "setBrightness 0.500000", "switchOff"}));
}

TEST_F(XPCMessageContract, CarryTheOutermostIntegers)
{
    const auto connection = connect();
    lampOf(*connection).send<&Lamp::setColourIsFast>(std::numeric_limits<std::int32_t>::min(), true);
    lampOf(*connection).send<&Lamp::setColourIsFast>(std::numeric_limits<std::int32_t>::max(), false);
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 2; }));
    EXPECT_EQ(house->lamp->calls(), (Strings{"setColour -2147483648 fast", "setColour 2147483647 slow"}));
}

TEST_F(XPCMessageContract, CarryASurfaceWithItsPixelsAndATime)
{
    const auto connection = connect();
    const auto surface = makeSurface(0xA7);
    const auto timing = makeTiming(1LL << 40U);
    lampOf(*connection).send<&Lamp::shine>(surface.get(), timing);
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    const auto received = house->lamp->surfaces().at(0);
    EXPECT_EQ(IOSurfaceGetWidth(received.get()), 64U);
    EXPECT_EQ(IOSurfaceGetHeight(received.get()), 48U);
    EXPECT_EQ(markOf(received.get()), 0xA7);
    const auto last = house->lamp->lastTiming();
    expectSameTime(last.duration, timing.duration);
    expectSameTime(last.presentationTimeStamp, timing.presentationTimeStamp);
    expectSameTime(last.decodeTimeStamp, timing.decodeTimeStamp);
}

TEST_F(XPCMessageContract, CarryATimeAndANumberThatAreNone)
{
    const auto connection = connect();
    const auto surface = makeSurface(1);
    const CMTime odd{INT64_MIN, INT32_MIN, UINT32_MAX, INT64_MAX};
    lampOf(*connection).send<&Lamp::shine>(surface.get(), CMSampleTimingInfo{odd, kCMTimeInvalid, odd});
    lampOf(*connection).send<&Lamp::setBrightness>(std::numeric_limits<double>::quiet_NaN());
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 2; }));
    const auto timing = house->lamp->lastTiming();
    expectSameTime(timing.duration, odd);
    expectSameTime(timing.presentationTimeStamp, kCMTimeInvalid);
    expectSameTime(timing.decodeTimeStamp, odd);
    EXPECT_NE(house->lamp->calls().back().find("nan"), std::string::npos);
}

TEST_F(XPCMessageContract, AreDroppedWithoutTheirSurfaceAndTheConnectionStays)
{
    const auto connection = connect();
    lampOf(*connection).send<&Lamp::shine>(IOSurfaceRef{nullptr}, CMSampleTimingInfo{});
    lampOf(*connection).send<&Switching::switchOn>();
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    EXPECT_EQ(house->lamp->calls(), Strings{"switchOn"});
    EXPECT_EQ(counts->invalidations, 0);
}

TEST_F(XPCMessageContract, GoBothWays)
{
    const auto connection = connect();
    lampOf(*connection).send<&Switching::switchOn>();
    ASSERT_TRUE(waitFor([this] { return house->acceptedCount() == 1; }));
    const auto remote = xpc::Remote<LampOwner>::cast(house->accepted(0)->remoteObjectProxy());
    ASSERT_TRUE(remote);
    remote->send<&LampOwner::lampDidSwitch>(true);
    remote->send<&LampOwner::lampDidSwitch>(false);
    EXPECT_TRUE(waitFor([this] { return owner->onCount == 1 && owner->offCount == 1; }));
}

TEST_F(XPCMessageContract, OfAnAdoptedProtocolReachAnObjectWhoseInterfaceIsTheAdoptingOne)
{
    const auto connection = connect();
    connection->setRemoteObjectInterface(xpc::describe<Switching>());
    xpc::Remote<Switching>::cast(connection->remoteObjectProxy())->send<&Switching::switchOff>();
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    EXPECT_EQ(house->lamp->calls(), Strings{"switchOff"});
}

TEST_F(XPCMessageContract, ReachTheObjectThatIsExportedWhenTheyCome)
{
    const auto connection = connect();
    lampOf(*connection).send<&Switching::switchOn>();
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    const auto second = std::make_shared<RecordingLamp>();
    house->accepted(0)->setExportedObject(xpc::exportObject<Lamp>(second));
    lampOf(*connection).send<&Switching::switchOff>();
    ASSERT_TRUE(waitFor([&second] { return second->callCount() == 1; }));
    EXPECT_EQ(house->lamp->calls(), Strings{"switchOn"});
}

TEST_F(XPCMessageContract, ToAnAbsentObjectEndTheConnection)
{
    house->exportsLamp = false;
    const auto connection = connect();
    lampOf(*connection).send<&Switching::switchOn>();
    ASSERT_TRUE(waitFor([this] { return counts->invalidations == 1; }));
    ASSERT_TRUE(waitFor([this] { return house->counts(0)->invalidations == 1; }));
}

TEST_F(XPCMessageContract, ThatTheExportedInterfaceDoesNotHaveEndTheConnection)
{
    const auto connection = connect();
    connection->setRemoteObjectInterface(xpc::describe<LampOwner>());
    xpc::Remote<LampOwner>::cast(connection->remoteObjectProxy())->send<&LampOwner::lampDidSwitch>(true);
    ASSERT_TRUE(waitFor([this] { return counts->invalidations == 1; }));
    ASSERT_TRUE(waitFor([this] { return house->counts(0)->invalidations == 1; }));
}

TEST_F(XPCMessageContract, OfAProxyAreThoseOfItsProtocolAndOfThoseThatItAdopts)
{
    const auto connection = connectByEndpoint();
    EXPECT_TRUE(xpc::Remote<Lamp>::cast(connection->remoteObjectProxy()));
    EXPECT_TRUE(xpc::Remote<Switching>::cast(connection->remoteObjectProxy()));
    EXPECT_FALSE(xpc::Remote<LampOwner>::cast(connection->remoteObjectProxy()));
    connection->setRemoteObjectInterface(xpc::describe<Switching>());
    EXPECT_FALSE(xpc::Remote<Lamp>::cast(connection->remoteObjectProxy()));
    const auto without = xpc::Connection::withListenerEndpoint(listener->endpoint());
    EXPECT_FALSE(xpc::Remote<Switching>::cast(without->remoteObjectProxy()));
}

using XPCMessageContractDeathTest = XPCMessageContract;

TEST_F(XPCMessageContractDeathTest, ThatTheInterfaceDoesNotHaveAreFatalToTheirSender)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto connection = connectByEndpoint();
    EXPECT_DEATH(connection->remoteObjectProxy().send("explode", {}),
                 "Fatal error: No such message: explode");
    const auto without = xpc::Connection::withListenerEndpoint(listener->endpoint());
    EXPECT_DEATH(without->remoteObjectProxy().send("switchOn", {}),
                 "Fatal error: A message needs a remote object interface");
}

}  // namespace
}  // namespace pavo::test
