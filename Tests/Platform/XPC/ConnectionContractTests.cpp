// What a connection promises on every system: how it begins and ends, which handler runs, what lives on.

#include "Tests/Platform/XPC/XPCFixture.h"
#include "Tests/Support/Wait.h"

#include <pthread.h>
#include <unistd.h>

namespace pavo::test {
namespace {

using Strings = std::vector<std::string>;

constexpr const char* kContractName = "com.tarnwell.macos.cam.tests.contract";

class XPCConnectionContract : public XPCTest {
protected:
    // Resumes both ends. A system may dial no earlier than for the first message, so there is one.
    void connect(const std::shared_ptr<xpc::Connection>& connection)
    {
        endLater(connection);
        listener->resume();
        connection->resume();
        switchOn(*connection);
    }
    // Waits until the lamp has heard of it.
    void switchOn(xpc::Connection& connection)
    {
        const auto before = house->lamp->callCount();
        lampOf(connection).send<&Switching::switchOn>();
        ASSERT_TRUE(waitFor([&] { return house->lamp->callCount() == before + 1; }));
    }
};

TEST_F(XPCConnectionContract, BothSidesTellThePeersProcess)
{
    const auto connection = connectByEndpoint();
    connect(connection);
    EXPECT_EQ(connection->processIdentifier(), ::getpid());
    EXPECT_EQ(house->accepted(0)->processIdentifier(), ::getpid());
}

TEST_F(XPCConnectionContract, AcceptedConnectionIsInvalidatedWhenItsPeerInvalidates)
{
    const auto connection = connectByEndpoint();
    connect(connection);
    connection->invalidate();
    ASSERT_TRUE(waitFor([this] { return house->counts(0)->invalidations == 1; }));
    EXPECT_EQ(house->counts(0)->interruptions, 0);
}

TEST_F(XPCConnectionContract, AcceptedConnectionIsInvalidatedByItselfAndOnce)
{
    const auto connection = connectByEndpoint();
    const auto counts = countHandlers(*connection);
    connect(connection);
    house->accepted(0)->invalidate();
    house->accepted(0)->invalidate();
    ASSERT_TRUE(waitFor([this] { return house->counts(0)->invalidations == 1; }));
    // The peer is told later than the second one was asked for.
    ASSERT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
    EXPECT_EQ(house->counts(0)->invalidations, 1);
    EXPECT_EQ(house->counts(0)->interruptions, 0);
}

TEST_F(XPCConnectionContract, NamedConnectionIsInterruptedEachTimeItsPeerInvalidatesAndStaysUsable)
{
    registerName(kContractName);
    const auto connection = connectByName(kContractName);
    const auto counts = countHandlers(*connection);
    connect(connection);
    for (int round = 1; round <= 3; ++round) {
        house->accepted(static_cast<std::size_t>(round - 1))->invalidate();
        ASSERT_TRUE(waitFor([&] { return counts->interruptions == round; }));
        switchOn(*connection);
    }
    EXPECT_EQ(counts->invalidations, 0);
    EXPECT_EQ(house->acceptedCount(), 4U);
}

TEST_F(XPCConnectionContract, NamedConnectionIsInvalidatedWhenTheNameIsGoneAtTheNextMessage)
{
    registerName(kContractName);
    const auto connection = connectByName(kContractName);
    const auto counts = countHandlers(*connection);
    connect(connection);
    stopListening();
    house->accepted(0)->invalidate();
    ASSERT_TRUE(waitFor([&counts] { return counts->interruptions == 1; }));
    EXPECT_EQ(counts->invalidations, 0);

    lampOf(*connection).send<&Switching::switchOn>();

    ASSERT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
    EXPECT_EQ(counts->interruptions, 1);
}

TEST_F(XPCConnectionContract, MissingNameInvalidatesAfterResumeAndNotInsideOfIt)
{
    const auto connection = connectByName("com.tarnwell.macos.cam.tests.nobody");
    const auto counts = std::make_shared<HandlerCounts>();
    const auto resumer = pthread_self();
    const auto ranInside = std::make_shared<std::atomic<bool>>(false);
    connection->setInvalidationHandler([=] {
        *ranInside = pthread_equal(pthread_self(), resumer) != 0;
        ++counts->invalidations;
    });
    EXPECT_EQ(counts->invalidations, 0);
    connection->resume();
    ASSERT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
    EXPECT_FALSE(*ranInside);
}

TEST_F(XPCConnectionContract, NamedConnectionIsInvalidatedByItself)
{
    registerName(kContractName);
    const auto connection = connectByName(kContractName);
    const auto counts = countHandlers(*connection);
    connect(connection);
    connection->invalidate();
    ASSERT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
    EXPECT_EQ(counts->interruptions, 0);
}

TEST_F(XPCConnectionContract, EndpointConnectionIsInvalidatedWhenItsPeerInvalidates)
{
    const auto connection = connectByEndpoint();
    const auto counts = countHandlers(*connection);
    connect(connection);
    house->accepted(0)->invalidate();
    ASSERT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
    EXPECT_EQ(counts->interruptions, 0);
}

TEST_F(XPCConnectionContract, EndpointConnectionIsInvalidatedWhenTheListenerIsGone)
{
    const auto connection = connectByEndpoint();
    const auto counts = countHandlers(*connection);
    stopListening();
    connection->resume();
    ASSERT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
    EXPECT_EQ(counts->interruptions, 0);
}

TEST_F(XPCConnectionContract, EndpointConnectionIsInvalidatedByItself)
{
    const auto connection = connectByEndpoint();
    const auto counts = countHandlers(*connection);
    connect(connection);
    connection->invalidate();
    ASSERT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
    EXPECT_EQ(counts->interruptions, 0);
}

TEST_F(XPCConnectionContract, NothingIsSentAfterInvalidation)
{
    const auto connection = connectByEndpoint();
    connect(connection);
    connection->invalidate();
    lampOf(*connection).send<&Switching::switchOff>();
    ASSERT_TRUE(waitFor([this] { return house->counts(0)->invalidations == 1; }));
    EXPECT_EQ(house->lamp->calls(), Strings{"switchOn"});
}

TEST_F(XPCConnectionContract, NothingIsReceivedAfterInvalidation)
{
    house->lamp->onCall = [this] {
        if (house->lamp->callCount() == 2) house->accepted(0)->invalidate();
    };
    const auto connection = connectByEndpoint();
    const auto counts = countHandlers(*connection);
    connect(connection);
    for (int i = 0; i < 20; ++i)
        lampOf(*connection).send<&Switching::switchOff>();
    ASSERT_TRUE(waitFor([&] { return house->counts(0)->invalidations == 1 && counts->invalidations == 1; }));
    EXPECT_EQ(house->lamp->calls(), (Strings{"switchOn", "switchOff"}));
}

TEST_F(XPCConnectionContract, HandlersAndExportedObjectGoWithInvalidation)
{
    const auto marker = std::make_shared<int>(1);
    auto exported = std::make_shared<RecordingOwner>();
    const auto connection = connectByEndpoint();
    connection->setExportedInterface(xpc::describe<LampOwner>());
    connection->setExportedObject(xpc::exportObject<LampOwner>(exported));
    connection->setInvalidationHandler([marker] {});
    connection->setInterruptionHandler([marker] {});
    EXPECT_EQ(marker.use_count(), 3);
    EXPECT_GT(exported.use_count(), 1);
    connect(connection);
    connection->invalidate();
    EXPECT_TRUE(waitFor([&marker] { return marker.use_count() == 1; }));
    EXPECT_TRUE(waitFor([&exported] { return exported.use_count() == 1; }));
}

TEST_F(XPCConnectionContract, ExportedObjectOutlivesTheInvalidationHandler)
{
    const auto connection = connectByEndpoint();
    const auto exported = std::make_shared<std::weak_ptr<RecordingOwner>>();
    const auto wasAlive = std::make_shared<std::atomic<int>>(-1);
    connection->setExportedInterface(xpc::describe<LampOwner>());
    {
        const auto object = std::make_shared<RecordingOwner>();
        *exported = object;
        connection->setExportedObject(xpc::exportObject<LampOwner>(object));
    }
    connection->setInvalidationHandler([=] { *wasAlive = exported->expired() ? 0 : 1; });
    connect(connection);
    connection->invalidate();
    ASSERT_TRUE(waitFor([&] { return *wasAlive >= 0; }));
    EXPECT_EQ(*wasAlive, 1);
}

TEST_F(XPCConnectionContract, EmptyHandlersAreNone)
{
    const auto connection = connectByEndpoint();
    connection->setInvalidationHandler([] { ADD_FAILURE(); });
    connection->setInterruptionHandler([] { ADD_FAILURE(); });
    connection->setInvalidationHandler({});
    connection->setInterruptionHandler({});
    connect(connection);
    connection->invalidate();
    EXPECT_TRUE(waitFor([this] { return house->counts(0)->invalidations == 1; }));
}

TEST_F(XPCConnectionContract, ResumedConnectionLivesOnWithoutReferences)
{
    const auto connection = connectByEndpoint();
    connect(connection);
    house->clear(false);
    switchOn(*connection);
    EXPECT_EQ(house->counts(0)->invalidations, 0);
    connection->invalidate();
    EXPECT_TRUE(waitFor([this] { return house->counts(0)->invalidations == 1; }));
}

TEST_F(XPCConnectionContract, AcceptedConnectionReceivesNothingBeforeItIsResumed)
{
    house->resumes = false;
    const auto connection = connectByEndpoint();
    endLater(connection);
    listener->resume();
    connection->resume();
    lampOf(*connection).send<&Switching::switchOff>();
    ASSERT_TRUE(waitFor([this] { return house->acceptedCount() == 1; }));
    // Another peer's message comes later and is there: the first one's is held back.
    house->resumes = true;
    connect(connectByEndpoint());
    EXPECT_EQ(house->lamp->calls(), Strings{"switchOn"});

    house->accepted(0)->resume();

    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 2; }));
    EXPECT_EQ(house->lamp->calls().back(), "switchOff");
}

}  // namespace
}  // namespace pavo::test
