// What a listener promises on every system: whom it asks, whom it refuses, and how it is reached.

#include "Tests/Platform/XPC/XPCFixture.h"
#include "Tests/Support/Wait.h"

namespace pavo::test {
namespace {

class XPCListenerContract : public XPCTest {
protected:
    // A resumed connection with one message under way: a system may dial no earlier.
    std::shared_ptr<xpc::Connection> send()
    {
        auto connection = connectByEndpoint();
        counts = countHandlers(*connection);
        endLater(connection);
        connection->resume();
        lampOf(*connection).send<&Switching::switchOn>();
        return connection;
    }

    std::shared_ptr<HandlerCounts> counts;
};

TEST_F(XPCListenerContract, EndpointIsANewObjectEachTimeForTheSamePort)
{
    const auto first = listener->endpoint();
    const auto second = listener->endpoint();
    EXPECT_NE(first.object(), second.object());
    EXPECT_NE(xpc::ListenerEndpoint::machPort(first.object()), 0U);
    EXPECT_EQ(xpc::ListenerEndpoint::machPort(first.object()),
              xpc::ListenerEndpoint::machPort(second.object()));
}

TEST_F(XPCListenerContract, NoEndpointObjectHasNoPort)
{
    EXPECT_EQ(xpc::ListenerEndpoint::machPort(nullptr), 0U);
}

TEST_F(XPCListenerContract, AsksItsDelegateAboutEachPeerAndNamesItself)
{
    listener->resume();
    house->endsListener = true;
    const auto first = send();
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    // The listener that the delegate was given is this one: it has ended, and refuses.
    const auto firstCounts = counts;
    const auto second = send();
    ASSERT_TRUE(waitFor([this] { return counts->invalidations == 1; }));
    EXPECT_EQ(firstCounts->invalidations, 0);
    EXPECT_EQ(house->acceptedCount(), 1U);
}

TEST_F(XPCListenerContract, AsksNobodyBeforeItIsResumed)
{
    const auto early = send();
    // A peer of another listener comes later and is there.
    const auto other = xpc::Listener::anonymousListener();
    const auto otherHouse = std::make_shared<LampHouse>();
    other->setDelegate(otherHouse);
    other->resume();
    const auto late = xpc::Connection::withListenerEndpoint(other->endpoint());
    late->setRemoteObjectInterface(xpc::describe<Lamp>());
    endLater(late);
    late->resume();
    lampOf(*late).send<&Switching::switchOn>();
    ASSERT_TRUE(waitFor([&otherHouse] { return otherHouse->lamp->callCount() == 1; }));
    EXPECT_EQ(house->acceptedCount(), 0U);

    listener->resume();

    EXPECT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    EXPECT_EQ(counts->invalidations, 0);
    other->invalidate();
    otherHouse->clear();
}

TEST_F(XPCListenerContract, RefusedPeerIsInvalidatedOnBothSides)
{
    house->answer = false;
    house->resumes = false;
    listener->resume();
    const auto connection = send();
    ASSERT_TRUE(waitFor([this] { return counts->invalidations == 1; }));
    EXPECT_EQ(counts->interruptions, 0);
    ASSERT_TRUE(waitFor([this] { return house->counts(0)->invalidations == 1; }));
    EXPECT_EQ(house->lamp->callCount(), 0U);
}

TEST_F(XPCListenerContract, WithoutADelegateRefusesEverybody)
{
    listener->setDelegate({});
    listener->resume();
    const auto connection = send();
    EXPECT_TRUE(waitFor([this] { return counts->invalidations == 1; }));
}

TEST_F(XPCListenerContract, HoldsItsDelegateWeaklyAndRefusesWithoutIt)
{
    const std::weak_ptr<LampHouse> delegate = house;
    house = std::make_shared<LampHouse>();
    EXPECT_TRUE(delegate.expired());
    listener->resume();
    const auto connection = send();
    EXPECT_TRUE(waitFor([this] { return counts->invalidations == 1; }));
    EXPECT_EQ(house->acceptedCount(), 0U);
}

TEST_F(XPCListenerContract, ResumedListenerLivesOnWithoutReferences)
{
    listener->resume();
    const auto connection = connectByEndpoint();
    endLater(connection);
    house->endsListener = true;
    listener.reset();
    connection->resume();
    lampOf(*connection).send<&Switching::switchOn>();
    EXPECT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
}

TEST_F(XPCListenerContract, ConnectionsOutliveTheirListener)
{
    listener->resume();
    const auto connection = send();
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    stopListening();
    lampOf(*connection).send<&Switching::switchOn>();
    EXPECT_TRUE(waitFor([this] { return house->lamp->callCount() == 2; }));
}

TEST_F(XPCListenerContract, SeveralPeersTalkAtOnce)
{
    listener->resume();
    for (int i = 0; i < 8; ++i)
        send();
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 8; }));
    EXPECT_EQ(house->acceptedCount(), 8U);
}

TEST_F(XPCListenerContract, InvalidationTwiceIsHarmless)
{
    listener->resume();
    listener->invalidate();
    listener->invalidate();
    listener->resume();
    const auto connection = send();
    EXPECT_TRUE(waitFor([this] { return counts->invalidations == 1; }));
}

}  // namespace
}  // namespace pavo::test
