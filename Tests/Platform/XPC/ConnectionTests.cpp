// What a connection does on Linux beyond what all systems share: other processes, limits, and what it logs.

#include "Tests/Platform/XPC/LinuxFixture.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Wait.h"

#include <dispatch/dispatch.h>
#include <signal.h>
#include <unistd.h>

#include <limits>

namespace pavo::test {
namespace {

using Strings = std::vector<std::string>;

constexpr const char* kLampName = "com.tarnwell.macos.cam.tests.lamp";

class XPCConnectionTest : public XPCTest {
protected:
    // Starts another process with a lamp of that name, and waits until it answers.
    ChildProcess startLamp()
    {
        ChildProcess lamp({peerProgram(), "lamp", kLampName});
        EXPECT_TRUE(waitFor([] {
            const auto probe = connectByName(kLampName);
            const auto probed = std::make_shared<RecordingOwner>();
            probe->setExportedInterface(xpc::describe<LampOwner>());
            probe->setExportedObject(xpc::exportObject<LampOwner>(probed));
            const auto counts = countHandlers(*probe);
            probe->resume();
            lampOf(*probe).send<&Switching::switchOn>();
            waitFor([&] { return probed->onCount == 1 || counts->invalidations == 1; });
            probe->invalidate();
            return probed->onCount == 1;
        }));
        return lamp;
    }

    // A connection to that process which has been used.
    std::shared_ptr<xpc::Connection> connectToLamp()
    {
        auto connection = connectByName(kLampName);
        connection->setExportedInterface(xpc::describe<LampOwner>());
        connection->setExportedObject(xpc::exportObject<LampOwner>(owner));
        endLater(connection);
        return connection;
    }

    const std::shared_ptr<RecordingOwner> owner = std::make_shared<RecordingOwner>();
};

TEST_F(XPCConnectionTest, AcceptedConnectionIsInvalidatedOnceWhenItsPeerProcessDies)
{
    registerName(kLampName);
    listener->resume();
    ChildProcess producer({peerProgram(), "producer", kLampName, "1", "1"});
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    EXPECT_EQ(house->accepted(0)->processIdentifier(), producer.pid());

    producer.end(SIGKILL);

    ASSERT_TRUE(waitFor([this] { return house->counts(0)->invalidations == 1; }));
    EXPECT_EQ(house->counts(0)->interruptions, 0);
    EXPECT_EQ(house->accepted(0)->processIdentifier(), 0);
}

TEST_F(XPCConnectionTest, NamedConnectionIsInterruptedWhenItsPeerDiesAndLooksTheNameUpAgain)
{
    auto lamp = startLamp();
    const auto connection = connectToLamp();
    const auto counts = countHandlers(*connection);
    connection->resume();
    lampOf(*connection).send<&Switching::switchOn>();
    ASSERT_TRUE(waitFor([this] { return owner->onCount == 1; }));
    EXPECT_EQ(connection->processIdentifier(), lamp.pid());

    lamp.end(SIGKILL);
    ASSERT_TRUE(waitFor([&counts] { return counts->interruptions == 1; }));
    const auto next = startLamp();
    lampOf(*connection).send<&Switching::switchOff>();

    ASSERT_TRUE(waitFor([this] { return owner->offCount == 1; }));
    EXPECT_EQ(connection->processIdentifier(), next.pid());
    EXPECT_EQ(counts->invalidations, 0);
}

TEST_F(XPCConnectionTest, NamedConnectionIsInterruptedEachTimeItsPeerExits)
{
    const auto connection = connectToLamp();
    const auto counts = countHandlers(*connection);
    for (int round = 1; round <= 3; ++round) {
        const auto lamp = startLamp();
        connection->resume();
        lampOf(*connection).send<&Lamp::setColourIsFast>(2, false);
        ASSERT_TRUE(waitFor([&] { return counts->interruptions == round; }));
    }
    EXPECT_EQ(counts->invalidations, 0);
}

TEST_F(XPCConnectionTest, ConnectionThatWasNeverResumedRunsItsInvalidationHandlerToo)
{
    const auto connection = connectByEndpoint();
    const auto counts = countHandlers(*connection);
    connection->invalidate();
    ASSERT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
}

TEST_F(XPCConnectionTest, HandlersAndExportedObjectsThatComeAfterInvalidationAreNotKept)
{
    listener->resume();
    const auto connection = connectToLamp();
    auto marker = std::make_shared<int>(1);
    auto exported = std::make_shared<RecordingOwner>();
    const auto counts = countHandlers(*connection);
    connection->invalidate();
    ASSERT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));

    connection->setInvalidationHandler([marker] {});
    connection->setInterruptionHandler([marker] {});
    connection->setExportedObject(xpc::exportObject<LampOwner>(exported));
    EXPECT_EQ(marker.use_count(), 1);
    EXPECT_EQ(exported.use_count(), 1);
}

TEST_F(XPCConnectionTest, SlowObjectSlowsItsPeerDownAndLosesNothing)
{
    // Twice: the first time reading stops and goes on, the second time it must still work.
    listener->resume();
    const auto connection = connectByEndpoint();
    endLater(connection);
    const auto gate = std::make_shared<std::mutex>();
    house->lamp->onCall = [gate] { const std::lock_guard lock(*gate); };
    connection->resume();
    // Only so many messages may wait for a connection.
    lampOf(*connection).send<&Switching::switchOn>();
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    for (std::size_t round = 1; round <= 2; ++round) {
        {
            const std::lock_guard closed(*gate);
            for (int i = 0; i < 400; ++i)
                lampOf(*connection).send<&Lamp::setBrightness>(static_cast<double>(i));
        }
        ASSERT_TRUE(waitFor([&] { return house->lamp->callCount() == 1 + 400 * round; }))
            << house->lamp->callCount() << " in round " << round;
    }
    EXPECT_EQ(house->lamp->calls().back(), "setBrightness 399.000000");
    EXPECT_EQ(house->counts(0)->invalidations, 0);
}

TEST_F(XPCConnectionTest, TooManyMessagesBeforeResumeInvalidate)
{
    const auto connection = connectByEndpoint();
    const auto counts = countHandlers(*connection);
    for (int i = 0; i < 256; ++i)
        lampOf(*connection).send<&Switching::switchOn>();
    EXPECT_FALSE(hasLogged("Too many messages wait for a connection"));
    lampOf(*connection).send<&Switching::switchOn>();
    ASSERT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
    EXPECT_TRUE(hasLogged("Too many messages wait for a connection"));
}

TEST_F(XPCConnectionTest, MessageToAnAbsentExportedObjectIsLogged)
{
    house->exportsLamp = false;
    listener->resume();
    const auto connection = connectByEndpoint();
    const auto counts = countHandlers(*connection);
    connection->resume();
    lampOf(*connection).send<&Switching::switchOn>();
    ASSERT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
    EXPECT_TRUE(hasLogged("No exported object for switchOn"));
}

TEST_F(XPCConnectionTest, ExportedObjectOfAnotherProtocolThanTheInterfaceInvalidates)
{
    listener->resume();
    const auto connection = connectByEndpoint();
    const auto counts = countHandlers(*connection);
    connection->resume();
    ASSERT_TRUE(waitFor([this] { return house->acceptedCount() == 1; }));
    house->accepted(0)->setExportedObject(xpc::exportObject<LampOwner>(owner));
    lampOf(*connection).send<&Switching::switchOn>();
    ASSERT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
    EXPECT_TRUE(hasLogged("The exported object has no switchOn"));
}

TEST_F(XPCConnectionTest, MessageWithoutASurfaceIsLogged)
{
    listener->resume();
    const auto connection = connectByEndpoint();
    endLater(connection);
    connection->resume();
    lampOf(*connection).send<&Lamp::shine>(IOSurfaceRef{nullptr}, CMSampleTimingInfo{});
    lampOf(*connection).send<&Switching::switchOn>();
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    EXPECT_TRUE(hasLogged("Cannot send shine:timingInfo:: Invalid argument"));
}

using XPCConnectionDeathTest = XPCConnectionTest;

class BadName {
public:
    virtual void go() = 0;

protected:
    ~BadName() = default;
};

class TwoOfAKind {
public:
    virtual void first() = 0;
    virtual void second() = 0;

protected:
    ~TwoOfAKind() = default;
};

}  // namespace
}  // namespace pavo::test

template <>
struct xpc::Protocol<pavo::test::BadName> {
    static constexpr std::string_view name = "NoDot";
    using Adopts = xpc::Adopts<>;
    using Messages = xpc::Messages<xpc::Message<"go", &pavo::test::BadName::go>>;
};

template <>
struct xpc::Protocol<pavo::test::TwoOfAKind> {
    static constexpr std::string_view name = "Tests.TwoOfAKind";
    using Adopts = xpc::Adopts<>;
    using Messages = xpc::Messages<xpc::Message<"a:", &pavo::test::TwoOfAKind::first>,
                                   xpc::Message<"a_", &pavo::test::TwoOfAKind::second>>;
};

namespace pavo::test {
namespace {

TEST_F(XPCConnectionDeathTest, MessagesThatTheInterfaceDoesNotHaveAreFatal)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto connection = connectByEndpoint();
    const auto proxy = connection->remoteObjectProxy();
    EXPECT_DEATH(proxy.send("explode", {}), "Fatal error: No such message: explode");
    EXPECT_DEATH(proxy.send("setBrightness:", {}), "Fatal error: Wrong arguments for setBrightness:");
    const xpc::Argument number = std::int32_t{1};
    EXPECT_DEATH(proxy.send("setBrightness:", {&number, 1}),
                 "Fatal error: Wrong arguments for setBrightness:");
    const auto bare = xpc::Connection::withMachServiceName(kLampName);
    EXPECT_DEATH(bare->remoteObjectProxy().send("switchOn", {}),
                 "Fatal error: A message needs a remote object interface");
}

TEST_F(XPCConnectionDeathTest, ProtocolsThatCannotBePutOnTheWireAreFatal)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto connection = connectByEndpoint();
    EXPECT_DEATH(connection->setRemoteObjectInterface(xpc::describe<BadName>()),
                 "Fatal error: The protocol's name cannot be an interface name: NoDot");
    EXPECT_DEATH(connection->setExportedInterface(xpc::describe<TwoOfAKind>()),
                 "Fatal error: Two selectors have one member name: a_");
}

}  // namespace
}  // namespace pavo::test
