#include "CMIOExtensionSupport/BidirectionalXPCServiceClient.h"

#include "Tests/CMIOExtensionSupport/CameraTestSupport.h"
#include "Tests/CMIOExtensionSupport/DispatchRecorder.h"
#include "Tests/Support/Wait.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace pavo {
namespace {

using namespace test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using xpc::test::Peer;

// The camera's peer: it sends frames and hears subscriptions.
using DiallingClient = BidirectionalXPCServiceClient<VideoFrameConsumerService, VideoFrameProducerService>;

static_assert(!std::is_default_constructible_v<DiallingClient>, "a client needs somebody to dial for it");

constexpr auto kInitiating = "log default BidirectionalXPCServiceClient: Initiating XPC connection…";
constexpr auto kAttempting =
    "log default BidirectionalXPCServiceClient: Now attempting outbound XPC connection…";
constexpr auto kDestroying = "log info BidirectionalXPCServiceClient: "
                             "Destroying XPC connection and scheduling reconnection attempt…";
constexpr auto kInvalidated = "log error BidirectionalXPCServiceClient: The XPC connection was invalidated";
constexpr auto kInterrupted = "log error BidirectionalXPCServiceClient: The XPC connection was interrupted";
constexpr auto kQueue = "com.tarnwell.macos.cam.queue.BidirectionalXPCServiceClient";

class BidirectionalXPCServiceClient : public testing::Test {
protected:
    BidirectionalXPCServiceClient()
    {
        client->setOnGainedConnection([this](const DiallingClient::RemoteObject&) {
            queueOfGain.store(dispatch_queue_get_label(nullptr));
            ++gains;
        });
        client->setOnLostConnection([this] {
            queueOfLoss.store(dispatch_queue_get_label(nullptr));
            ++losses;
        });
    }
    ~BidirectionalXPCServiceClient() override
    {
        client->setOnGainedConnection(nullptr);
        client->setOnLostConnection(nullptr);
        isDialling = false;
        settle();
        while (DispatchRecorder::shared().runOldest())
            settle();
        resetDoubles();
    }

    // Waits until the client's queue has done what it was given. remoteObject waits for the queue.
    void settle() const { client->remoteObject(); }
    void startAndConnect()
    {
        client->start();
        ASSERT_TRUE(waitFor([this] { return gains == 1; }));
    }
    std::shared_ptr<Peer> peer(std::size_t index) const
    {
        const std::lock_guard lock(mutex);
        return index < peers.size() ? peers[index] : nullptr;
    }
    std::size_t dialled() const
    {
        const std::lock_guard lock(mutex);
        return peers.size();
    }
    bool subscribe(const Peer& from) const
    {
        return from.send<VideoFrameProducerService, &VideoFrameProducerService::subscribeToVideoFrames>();
    }

    mutable std::mutex mutex;
    std::vector<std::shared_ptr<Peer>> peers;
    std::atomic<bool> isDialling = true;
    std::atomic<const xpc::ProtocolDescription*> actualProtocol = nullptr;
    Synchronized<std::string> queueOfDial;
    std::atomic<int> gains = 0;
    std::atomic<int> losses = 0;
    Synchronized<std::string> queueOfGain;
    Synchronized<std::string> queueOfLoss;
    std::shared_ptr<SubscriptionCounter> producer = std::make_shared<SubscriptionCounter>();
    std::shared_ptr<DiallingClient> client =
        DiallingClient::create(producer, [this]() -> std::shared_ptr<xpc::Connection> {
            queueOfDial.store(dispatch_queue_get_label(nullptr));
            if (!isDialling) return nullptr;
            const std::lock_guard lock(mutex);
            peers.push_back(std::make_shared<Peer>(actualProtocol));
            return peers.back()->connection();
        });
};

TEST_F(BidirectionalXPCServiceClient, DoesNotConnectBeforeItIsStarted)
{
    settle();
    EXPECT_EQ(dialled(), 0u);
    EXPECT_FALSE(client->remoteObject());
    EXPECT_EQ(client->localObject(), producer);
}

TEST_F(BidirectionalXPCServiceClient, StartsWithoutClosures)
{
    const auto fresh = DiallingClient::create(nullptr, [] { return nullptr; });
    EXPECT_EQ(fresh->localObject(), nullptr);
    EXPECT_FALSE(fresh->onGainedConnection());
    EXPECT_FALSE(fresh->onLostConnection());
}

TEST_F(BidirectionalXPCServiceClient, ConfiguresAConnectionInTheFixedOrderBeforeResumingIt)
{
    client->setOnGainedConnection(nullptr);
    settle();
    Journal journal;
    client->start();
    settle();
    ASSERT_TRUE(waitFor([&] { return journal.count("remoteObjectProxy") == 2; }));

    auto entries = journal.entries();
    std::erase(entries, "remoteObjectProxy");
    EXPECT_THAT(entries,
                ElementsAre(kInitiating,
                            "setRemoteObjectInterface CMIOExtensionSupport.VideoFrameConsumerService",
                            "setExportedInterface CMIOExtensionSupport.VideoFrameProducerService",
                            "setExportedObject", "setInvalidationHandler", "setInterruptionHandler",
                            kAttempting, "resume"));
}

TEST_F(BidirectionalXPCServiceClient, DialsOnItsOwnSerialQueueOfNoParticularQualityOfService)
{
    takeQualitiesOfService();
    const auto other = DiallingClient::create(nullptr, [] { return nullptr; });
    startAndConnect();

    EXPECT_EQ(queueOfDial.load(), kQueue);
    EXPECT_THAT(takeQualitiesOfService(), IsEmpty());
}

TEST_F(BidirectionalXPCServiceClient, StartingTwiceConnectsOnce)
{
    Journal journal;
    client->start();
    client->start();
    settle();

    EXPECT_EQ(dialled(), 1u);
    EXPECT_EQ(journal.count(kInitiating), 1u);
}

TEST_F(BidirectionalXPCServiceClient, ReportsTheGainRightAfterResumingBeforeThePeerHasSaidAnything)
{
    startAndConnect();

    EXPECT_EQ(gains, 1);
    EXPECT_THAT(peer(0)->calls(), Contains("resume"));
    EXPECT_EQ(producer->subscriptions, 0);
}

TEST_F(BidirectionalXPCServiceClient, TheGainReachesTheClosureOnTheGlobalQueueWhereItMayReadTheRemoteObject)
{
    std::atomic<bool> hasRemoteObject = false;
    client->setOnGainedConnection([&](const DiallingClient::RemoteObject& remote) {
        dispatch_assert_queue(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0));
        hasRemoteObject = client->remoteObject().has_value();
        remote.send<&VideoFrameConsumerService::targetFPSChangedTo>(24.0);
        ++gains;
    });
    startAndConnect();

    EXPECT_TRUE(hasRemoteObject);
    EXPECT_THAT(peer(0)->sentSelectors(), ElementsAre("targetFPSChangedTo:"));
}

TEST_F(BidirectionalXPCServiceClient, TheLossReachesTheClosureOnTheGlobalQueueWhereItMayReadTheRemoteObject)
{
    std::atomic<bool> wasForgotten = false;
    client->setOnLostConnection([&] {
        dispatch_assert_queue(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0));
        wasForgotten = !client->remoteObject();
        ++losses;
    });
    startAndConnect();
    peer(0)->failWithInvalidation();
    ASSERT_TRUE(waitFor([this] { return losses == 1; }));

    EXPECT_TRUE(wasForgotten);
}

TEST_F(BidirectionalXPCServiceClient, ALostConnectionIsLoggedForgottenAndDialledAgainHalfASecondLater)
{
    startAndConnect();
    Journal journal;
    peer(0)->failWithInvalidation();
    ASSERT_TRUE(waitFor([this] { return losses == 1; }));

    EXPECT_THAT(journal.logs(), ElementsAre(kInvalidated, kDestroying));
    EXPECT_FALSE(client->remoteObject());
    EXPECT_EQ(DispatchRecorder::shared().delayedCount(), 1u);
    EXPECT_EQ(DispatchRecorder::shared().delayOfOldest(), 500'000'000);
    EXPECT_EQ(DispatchRecorder::shared().queueOfOldest(), kQueue);
    EXPECT_EQ(dialled(), 1u);

    ASSERT_TRUE(DispatchRecorder::shared().runOldest());
    ASSERT_TRUE(waitFor([this] { return gains == 2; }));
    EXPECT_EQ(dialled(), 2u);
    EXPECT_TRUE(client->remoteObject());
}

TEST_F(BidirectionalXPCServiceClient, AnInterruptionIsTreatedLikeAnInvalidationButForItsText)
{
    startAndConnect();
    Journal journal;
    peer(0)->failWithInterruption();
    ASSERT_TRUE(waitFor([this] { return losses == 1; }));

    EXPECT_THAT(journal.logs(), ElementsAre(kInterrupted, kDestroying));
    EXPECT_FALSE(client->remoteObject());
    EXPECT_EQ(DispatchRecorder::shared().delayedCount(), 1u);
}

TEST_F(BidirectionalXPCServiceClient, BothEndsOfOneConnectionAreOneLossAndOneAttempt)
{
    startAndConnect();
    Journal journal;
    peer(0)->failWithInterruption();
    peer(0)->failWithInvalidation();
    settle();
    ASSERT_TRUE(waitFor([this] { return losses == 1; }));

    EXPECT_THAT(journal.logs(), ElementsAre(kInterrupted, kDestroying, kInvalidated));
    EXPECT_EQ(DispatchRecorder::shared().delayedCount(), 1u);
    ASSERT_TRUE(DispatchRecorder::shared().runOldest());
    ASSERT_TRUE(waitFor([this] { return gains == 2; }));
    EXPECT_EQ(losses, 1);
}

TEST_F(BidirectionalXPCServiceClient, ALossWhileAnAttemptWaitsSchedulesNothingNew)
{
    startAndConnect();
    peer(0)->failWithInvalidation();
    ASSERT_TRUE(waitFor([this] { return losses == 1; }));
    // Connects at once, ahead of the attempt that waits.
    client->start();
    ASSERT_TRUE(waitFor([this] { return gains == 2; }));
    peer(1)->failWithInvalidation();
    ASSERT_TRUE(waitFor([this] { return losses == 2; }));

    EXPECT_EQ(DispatchRecorder::shared().delayedCount(), 1u);
    ASSERT_TRUE(DispatchRecorder::shared().runOldest());
    ASSERT_TRUE(waitFor([this] { return gains == 3; }));
    EXPECT_EQ(dialled(), 3u);
}

TEST_F(BidirectionalXPCServiceClient, AnAttemptThatFindsAConnectionLeavesItAlone)
{
    startAndConnect();
    peer(0)->failWithInvalidation();
    ASSERT_TRUE(waitFor([this] { return losses == 1; }));
    client->start();
    ASSERT_TRUE(waitFor([this] { return gains == 2; }));
    Journal journal;
    ASSERT_TRUE(DispatchRecorder::shared().runOldest());

    EXPECT_THAT(journal.logs(), IsEmpty());
    EXPECT_EQ(dialled(), 2u);
}

TEST_F(BidirectionalXPCServiceClient, WithoutAServiceItGainsLosesAndTriesAgainEveryHalfSecondWithoutEnd)
{
    constexpr int kAttempts = 20;
    startAndConnect();
    Journal journal;
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        peer(static_cast<std::size_t>(attempt - 1))->failWithInvalidation();
        ASSERT_TRUE(waitFor([&] { return losses == attempt; }));
        ASSERT_EQ(DispatchRecorder::shared().delayedCount(), 1u);
        ASSERT_EQ(DispatchRecorder::shared().delayOfOldest(), 500'000'000) << "attempt " << attempt;
        ASSERT_TRUE(DispatchRecorder::shared().runOldest());
        ASSERT_TRUE(waitFor([&] { return gains == attempt + 1; }));
    }

    EXPECT_EQ(journal.count(kInitiating), static_cast<std::size_t>(kAttempts));
    EXPECT_EQ(journal.count(kAttempting), static_cast<std::size_t>(kAttempts));
    EXPECT_EQ(journal.count(kDestroying), static_cast<std::size_t>(kAttempts));
}

TEST_F(BidirectionalXPCServiceClient, ReleasesTheConnectionItDropsWithoutInvalidatingIt)
{
    startAndConnect();
    std::weak_ptr<xpc::Connection> dropped = peer(0)->connection();
    peer(0)->failWithInvalidation();
    ASSERT_TRUE(waitFor([this] { return losses == 1; }));

    EXPECT_THAT(peer(0)->calls(), Not(Contains("invalidate")));
    EXPECT_TRUE(waitFor([&dropped] { return dropped.use_count() == 1; }))
        << "somebody besides the peer has it";
}

TEST_F(BidirectionalXPCServiceClient, DeliversThePeersMessagesToTheLocalObjectOnEveryConnection)
{
    startAndConnect();
    EXPECT_TRUE(subscribe(*peer(0)));
    peer(0)->failWithInterruption();
    ASSERT_TRUE(waitFor([this] { return losses == 1; }));
    ASSERT_TRUE(DispatchRecorder::shared().runOldest());
    ASSERT_TRUE(waitFor([this] { return gains == 2; }));
    EXPECT_TRUE(subscribe(*peer(1)));

    EXPECT_EQ(producer->subscriptions, 2);
}

TEST_F(BidirectionalXPCServiceClient, SettingTheLocalObjectBeforeAnyConnectionExistsOnlyStoresIt)
{
    const auto other = std::make_shared<SubscriptionCounter>();
    Journal journal;
    client->setLocalObject(other);
    settle();
    EXPECT_THAT(journal.entries(), IsEmpty());
    EXPECT_EQ(client->localObject(), other);

    startAndConnect();
    EXPECT_TRUE(subscribe(*peer(0)));
    EXPECT_EQ(other->subscriptions, 1);
    EXPECT_EQ(producer->subscriptions, 0);
}

TEST_F(BidirectionalXPCServiceClient, SettingTheLocalObjectWhileConnectedStoresItAtOnceAndExportsItOnTheQueue)
{
    startAndConnect();
    const auto other = std::make_shared<SubscriptionCounter>();
    const auto before = peer(0)->exportedObject().object;
    // Holds the client's queue back while the object is set.
    xpc::test::setCallObserver([&](const std::string& call) {
        if (call != "remoteObjectProxy") return;
        client->setLocalObject(other);
        EXPECT_EQ(client->localObject(), other);
        EXPECT_EQ(peer(0)->exportedObject().object, before);
        EXPECT_STREQ(dispatch_queue_get_label(nullptr), kQueue);
    });
    client->remoteObject();
    xpc::test::setCallObserver({});
    settle();

    EXPECT_NE(peer(0)->exportedObject().object, before);
    EXPECT_TRUE(subscribe(*peer(0)));
    EXPECT_EQ(other->subscriptions, 1);
}

TEST_F(BidirectionalXPCServiceClient, SettingTheLocalObjectToNoneWhileConnectedExportsNothing)
{
    startAndConnect();
    client->setLocalObject(nullptr);
    settle();

    EXPECT_THAT(peer(0)->calls(), Contains("setExportedObject none"));
    EXPECT_FALSE(subscribe(*peer(0)));
}

TEST_F(BidirectionalXPCServiceClient, ReadingTheRemoteObjectWithoutConnectionYieldsNoneAndSendsNothing)
{
    Journal journal;
    EXPECT_FALSE(client->remoteObject());
    EXPECT_THAT(journal.entries(), IsEmpty());
}

TEST_F(BidirectionalXPCServiceClient, FetchesAFreshProxyOnEveryReadOnItsQueue)
{
    startAndConnect();
    const auto before = peer(0)->calls().size();
    std::string queue;
    xpc::test::setCallObserver([&](const std::string&) { queue = dispatch_queue_get_label(nullptr); });
    client->remoteObject();
    client->remoteObject();
    xpc::test::setCallObserver({});

    EXPECT_EQ(peer(0)->calls().size(), before + 2);
    EXPECT_EQ(queue, kQueue);
}

TEST_F(BidirectionalXPCServiceClient, APeerThatDoesNotConformYieldsNoneAndIsNotReportedAsGained)
{
    actualProtocol = &xpc::describe<VideoFrameProducerService>();
    client->start();
    settle();
    ASSERT_TRUE(waitFor([this] { return peer(0)->calls().size() >= 8; }));

    EXPECT_FALSE(client->remoteObject());
    EXPECT_EQ(gains, 0);
}

TEST_F(BidirectionalXPCServiceClient, LossAndGainWithoutClosuresAreOnlyLogged)
{
    client->setOnGainedConnection(nullptr);
    client->setOnLostConnection(nullptr);
    client->start();
    settle();
    Journal journal;
    peer(0)->failWithInterruption();
    settle();

    EXPECT_THAT(journal.logs(), ElementsAre(kInterrupted, kDestroying));
}

TEST_F(BidirectionalXPCServiceClient, IsKeptByItsConnectionAndByTheAttemptThatWaits)
{
    startAndConnect();
    client->setOnGainedConnection(nullptr);
    client->setOnLostConnection(nullptr);
    settle();
    std::weak_ptr<DiallingClient> weakClient = client;
    client = DiallingClient::create(nullptr, [] { return nullptr; });
    EXPECT_FALSE(weakClient.expired());

    peer(0)->failWithInvalidation();
    EXPECT_TRUE(waitFor([] { return DispatchRecorder::shared().delayedCount() == 1; }));
    EXPECT_FALSE(weakClient.expired());

    isDialling = false;
    ASSERT_TRUE(DispatchRecorder::shared().runOldest());
    EXPECT_TRUE(waitFor([&weakClient] { return weakClient.expired(); }));
}

TEST_F(BidirectionalXPCServiceClient, AnOwnerThatDialsNoMoreEndsTheAttemptsUntilItStartsAgain)
{
    startAndConnect();
    isDialling = false;
    peer(0)->failWithInvalidation();
    ASSERT_TRUE(waitFor([this] { return losses == 1; }));
    ASSERT_TRUE(DispatchRecorder::shared().runOldest());
    EXPECT_EQ(DispatchRecorder::shared().delayedCount(), 0u);
    EXPECT_FALSE(client->remoteObject());

    isDialling = true;
    client->start();
    EXPECT_TRUE(waitFor([this] { return gains == 2; }));
}

TEST_F(BidirectionalXPCServiceClient, LossesSendersAndSettersMayMeetOnDifferentThreads)
{
    startAndConnect();
    std::atomic<bool> isDone = false;
    std::thread sender([&] {
        while (!isDone)
            if (const auto remote = client->remoteObject())
                remote->send<&VideoFrameConsumerService::targetFPSChangedTo>(60.0);
    });
    std::thread exporter([&] {
        while (!isDone) {
            client->setLocalObject(producer);
            settle();  // or the queue would grow faster than it is worked off
        }
    });
    for (int i = 1; i <= 100; ++i) {
        peer(static_cast<std::size_t>(i - 1))->failWithInvalidation();
        if (!waitFor([] { return DispatchRecorder::shared().delayedCount() == 1; })) break;
        DispatchRecorder::shared().runOldest();
    }
    isDone = true;
    sender.join();
    exporter.join();

    EXPECT_TRUE(waitFor([this] { return losses == 100 && gains == 101; }));
}

}  // namespace
}  // namespace pavo
