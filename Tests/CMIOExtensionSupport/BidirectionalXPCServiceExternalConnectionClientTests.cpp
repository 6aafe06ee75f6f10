#include "CMIOExtensionSupport/BidirectionalXPCServiceExternalConnectionClient.h"

#include "Tests/CMIOExtensionSupport/CameraTestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <type_traits>

namespace pavo {
namespace {

using namespace test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using xpc::test::Peer;

using GivenConnectionClient =
    BidirectionalXPCServiceExternalConnectionClient<VideoFrameConsumerService, VideoFrameProducerService>;

static_assert(!std::is_default_constructible_v<GivenConnectionClient>,
              "made by create, with or without an object");

constexpr auto kResuming = "log default BidirectionalXPCServiceExternalConnectionClient: "
                           "Now attempting to resume externally-provided XPC connection…";

class BidirectionalXPCServiceExternalConnectionClient : public testing::Test {
protected:
    ~BidirectionalXPCServiceExternalConnectionClient() override { resetDoubles(); }

    bool subscribe(const Peer& from) const
    {
        return from.send<VideoFrameProducerService, &VideoFrameProducerService::subscribeToVideoFrames>();
    }

    std::shared_ptr<SubscriptionCounter> producer = std::make_shared<SubscriptionCounter>();
    std::shared_ptr<GivenConnectionClient> client = GivenConnectionClient::create(producer);
};

TEST_F(BidirectionalXPCServiceExternalConnectionClient, StartsWithoutConnectionAndClosures)
{
    EXPECT_EQ(client->localObject(), producer);
    EXPECT_FALSE(client->remoteObject());
    EXPECT_FALSE(client->onGainedConnection());
    EXPECT_FALSE(client->onLostConnection());
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient, StartAloneDoesNothing)
{
    Journal journal;
    bool wasCalled = false;
    client->setOnGainedConnection([&](const GivenConnectionClient::RemoteObject&) { wasCalled = true; });
    client->setOnLostConnection([&] { wasCalled = true; });
    client->start();

    EXPECT_FALSE(client->remoteObject());
    EXPECT_FALSE(wasCalled);
    EXPECT_THAT(journal.entries(), IsEmpty());
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient, ConfiguresAConnectionInTheFixedOrderBeforeResumingIt)
{
    Peer peer;
    Journal journal;
    client->connect(peer.connection());

    EXPECT_THAT(journal.entries(),
                ElementsAre("setRemoteObjectInterface CMIOExtensionSupport.VideoFrameConsumerService",
                            "setExportedInterface CMIOExtensionSupport.VideoFrameProducerService",
                            "setExportedObject", "setInvalidationHandler", "setInterruptionHandler",
                            kResuming, "resume", "remoteObjectProxy"));
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient, StoresTheConnectionBeforeItConfiguresIt)
{
    Peer peer;
    // The interface comes first; asking for the remote object then reaches the connection already.
    bool wasStored = false;
    xpc::test::setCallObserver([&](const std::string& call) {
        if (call == "setExportedInterface CMIOExtensionSupport.VideoFrameProducerService")
            wasStored = client->remoteObject().has_value();
    });
    client->connect(peer.connection());
    xpc::test::setCallObserver({});

    EXPECT_TRUE(wasStored);
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient, ReportsTheGainOnTheCallersThreadBeforeConnectReturns)
{
    Peer peer;
    std::thread::id thread;
    client->setOnGainedConnection([&](const GivenConnectionClient::RemoteObject& remote) {
        thread = std::this_thread::get_id();
        remote.send<&VideoFrameConsumerService::targetFPSChangedTo>(24.0);
    });
    client->connect(peer.connection());

    EXPECT_EQ(thread, std::this_thread::get_id());
    EXPECT_THAT(peer.sentSelectors(), ElementsAre("targetFPSChangedTo:"));
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient, KeepsTheConnectionThatWasInvalidated)
{
    Peer peer;
    client->connect(peer.connection());
    peer.failWithInvalidation();

    ASSERT_TRUE(client->remoteObject());
    client->remoteObject()->send<&VideoFrameConsumerService::targetFPSChangedTo>(24.0);
    EXPECT_THAT(peer.calls(), Not(Contains("invalidate")));
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient, AnInvalidationIsLoggedAndThenReported)
{
    Peer peer;
    client->connect(peer.connection());
    Journal journal;
    std::vector<std::string> logsWhenLost;
    client->setOnLostConnection([&] { logsWhenLost = journal.logs(); });
    peer.failWithInvalidation();

    EXPECT_THAT(logsWhenLost, ElementsAre("log error BidirectionalXPCServiceExternalConnectionClient: "
                                          "The XPC connection was invalidated"));
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient,
       AnInterruptionIsTreatedLikeAnInvalidationButForItsText)
{
    Peer peer;
    client->connect(peer.connection());
    Journal journal;
    int losses = 0;
    client->setOnLostConnection([&losses] { ++losses; });
    peer.failWithInterruption();

    EXPECT_EQ(losses, 1);
    EXPECT_TRUE(client->remoteObject());
    EXPECT_THAT(journal.logs(), ElementsAre("log error BidirectionalXPCServiceExternalConnectionClient: "
                                            "The XPC connection was interrupted"));
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient, ALossWithoutClosureIsOnlyLogged)
{
    Peer peer;
    client->connect(peer.connection());
    Journal journal;
    peer.failWithInvalidation();

    EXPECT_EQ(journal.logs().size(), 1u);
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient,
       ASecondConnectionReplacesTheFirstWhoseLossIsStillReported)
{
    Peer first;
    Peer second;
    int losses = 0;
    client->setOnLostConnection([&losses] { ++losses; });
    client->connect(first.connection());
    client->connect(second.connection());
    client->remoteObject()->send<&VideoFrameConsumerService::targetFPSChangedTo>(24.0);
    EXPECT_THAT(first.sentSelectors(), IsEmpty());
    EXPECT_THAT(second.sentSelectors(), ElementsAre("targetFPSChangedTo:"));
    EXPECT_THAT(first.calls(), Not(Contains("invalidate")));
    EXPECT_EQ(first.connection().use_count(), 1) << "the first one is still held";

    first.failWithInvalidation();
    EXPECT_EQ(losses, 1);
    client->remoteObject()->send<&VideoFrameConsumerService::targetFPSChangedTo>(25.0);
    EXPECT_EQ(second.sentSelectors().size(), 2u);
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient, DeliversThePeersMessagesToTheLocalObject)
{
    Peer peer;
    client->connect(peer.connection());

    EXPECT_TRUE(subscribe(peer));
    EXPECT_EQ(producer->subscriptions, 1);
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient,
       SettingTheLocalObjectBeforeAnyConnectionExistsOnlyStoresIt)
{
    const auto other = std::make_shared<SubscriptionCounter>();
    Journal journal;
    client->setLocalObject(other);
    EXPECT_THAT(journal.entries(), IsEmpty());

    Peer peer;
    client->connect(peer.connection());
    EXPECT_TRUE(subscribe(peer));
    EXPECT_EQ(other->subscriptions, 1);
    EXPECT_EQ(producer->subscriptions, 0);
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient, SettingTheLocalObjectWhileConnectedExportsItAtOnce)
{
    const auto bare = GivenConnectionClient::create(nullptr);
    Peer peer;
    bare->connect(peer.connection());
    EXPECT_FALSE(subscribe(peer));
    bare->setLocalObject(producer);
    EXPECT_TRUE(subscribe(peer));
    bare->setLocalObject(nullptr);

    EXPECT_EQ(peer.calls().back(), "setExportedObject none");
    EXPECT_FALSE(subscribe(peer));
    EXPECT_EQ(producer->subscriptions, 1);
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient, FetchesAFreshProxyOnEveryRead)
{
    Peer peer;
    client->connect(peer.connection());
    const auto before = peer.calls().size();
    client->remoteObject();
    client->remoteObject();

    EXPECT_EQ(peer.calls().size(), before + 2);
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient,
       APeerThatDoesNotConformYieldsNoneAndIsNotReportedAsGained)
{
    Peer peer(&xpc::describe<VideoFrameProducerService>());
    bool wasGained = false;
    client->setOnGainedConnection([&](const GivenConnectionClient::RemoteObject&) { wasGained = true; });
    client->connect(peer.connection());

    EXPECT_FALSE(client->remoteObject());
    EXPECT_FALSE(wasGained);
}

TEST_F(BidirectionalXPCServiceExternalConnectionClient, AConnectionKeepsTheClientThatConfiguredIt)
{
    Peer peer;
    client->connect(peer.connection());
    std::weak_ptr<GivenConnectionClient> weakClient = client;
    client.reset();
    EXPECT_FALSE(weakClient.expired());

    peer.failWithInvalidation();
    EXPECT_TRUE(weakClient.expired());
}

}  // namespace
}  // namespace pavo
