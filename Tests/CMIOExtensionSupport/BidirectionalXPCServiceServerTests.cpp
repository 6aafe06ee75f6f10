#include "CMIOExtensionSupport/BidirectionalXPCServiceServer.h"
#include "Tests/CMIOExtensionSupport/CameraTestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <type_traits>

namespace pavo {
namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;
using xpc::test::Peer;

static_assert(!std::is_default_constructible_v<FrameServer>, "a server needs its listener");

class Consumer final : public VideoFrameConsumerService {
public:
    void didRecieveRawFrame(IOSurfaceRef, CMSampleTimingInfo) override { ++frames; }
    void targetFPSChangedTo(double) override { ++rates; }

    int frames = 0;
    int rates = 0;
};

class BidirectionalXPCServiceServer : public testing::Test {
protected:
    ~BidirectionalXPCServiceServer() override
    {
        breakCycle(*server);
        resetDoubles();
    }

    bool sendRate(const Peer& peer) const
    {
        return peer.send<VideoFrameConsumerService, &VideoFrameConsumerService::targetFPSChangedTo>(60.0);
    }

    std::shared_ptr<xpc::Listener> listener = xpc::Listener::anonymousListener();
    std::shared_ptr<Consumer> consumer = std::make_shared<Consumer>();
    std::shared_ptr<FrameServer> server = FrameServer::create(listener, consumer);
};

constexpr auto kReceived = "log default BidirectionalXPCServiceServer: Received XPC connection. Configuring…";
constexpr auto kResuming = "log default BidirectionalXPCServiceServer: Now resuming XPC connection…";

TEST_F(BidirectionalXPCServiceServer, IsTheListenersDelegateFromItsCreationOn)
{
    EXPECT_EQ(xpc::test::delegate(*listener), server);
}

TEST_F(BidirectionalXPCServiceServer, DoesNotResumeTheListenerBeforeItIsStarted)
{
    EXPECT_FALSE(xpc::test::isResumed(*listener));
}

TEST_F(BidirectionalXPCServiceServer, StartResumesTheListenerAndThenLogs)
{
    Journal journal;
    server->start();

    EXPECT_THAT(
        journal.entries(),
        ElementsAre("Listener resume", "log default BidirectionalXPCServiceServer: Starting XPC listener!"));
}

TEST_F(BidirectionalXPCServiceServer, StartsWithoutConnectionAndClosures)
{
    EXPECT_EQ(server->localObject(), consumer);
    EXPECT_FALSE(server->remoteObject());
    EXPECT_FALSE(server->onGainedConnection());
    EXPECT_FALSE(server->onLostConnection());
}

TEST_F(BidirectionalXPCServiceServer, CanBeCreatedWithoutALocalObject)
{
    EXPECT_EQ(FrameServer::create(xpc::Listener::anonymousListener())->localObject(), nullptr);
}

TEST_F(BidirectionalXPCServiceServer, ConfiguresAConnectionInTheFixedOrderBeforeResumingIt)
{
    server->start();
    Journal journal;
    const auto peer = Peer::connect(*listener);

    EXPECT_TRUE(peer->isAccepted());
    EXPECT_THAT(
        journal.entries(),
        ElementsAre(kReceived,
                    "setRemoteObjectInterface CMIOExtensionSupport.VideoFrameProducerServiceReportReceiving",
                    "setExportedInterface CMIOExtensionSupport.VideoFrameConsumerService",
                    "setExportedObject", "setInvalidationHandler", "setInterruptionHandler", kResuming,
                    "resume", "remoteObjectProxy"));
}

TEST_F(BidirectionalXPCServiceServer, StoresTheConnectionBeforeItResumesIt)
{
    server->start();
    bool hadRemoteObjectAtResume = false;
    xpc::test::setCallObserver([&](const std::string& call) {
        if (call == "resume") hadRemoteObjectAtResume = server->remoteObject().has_value();
    });
    const auto peer = Peer::connect(*listener);
    xpc::test::setCallObserver({});

    EXPECT_TRUE(hadRemoteObjectAtResume);
}

TEST_F(BidirectionalXPCServiceServer, GainingAConnectionIsToldInsideTheAcceptanceAfterResuming)
{
    server->start();
    std::vector<std::string> callsWhenGained;
    std::shared_ptr<Peer> peer;
    bool isInside = true;
    server->setOnGainedConnection([&](const FrameServer::RemoteObject& remote) {
        EXPECT_TRUE(isInside);
        remote.send<&VideoFrameProducerService::subscribeToVideoFrames>();
    });
    peer = Peer::connect(*listener);
    isInside = false;

    EXPECT_THAT(peer->sentSelectors(), ElementsAre("subscribeToVideoFrames"));
    EXPECT_EQ(peer->calls().back(), "remoteObjectProxy");
}

TEST_F(BidirectionalXPCServiceServer, AcceptsEveryConnection)
{
    server->start();
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(Peer::connect(*listener)->isAccepted());
}

TEST_F(BidirectionalXPCServiceServer, DeliversThePeersMessagesToTheLocalObject)
{
    server->start();
    const auto peer = Peer::connect(*listener);

    EXPECT_TRUE(sendRate(*peer));
    EXPECT_EQ(consumer->rates, 1);
}

TEST_F(BidirectionalXPCServiceServer, AcceptingASecondConnectionReplacesTheFirstWhichKeepsRunning)
{
    server->start();
    const auto first = Peer::connect(*listener);
    const auto second = Peer::connect(*listener);
    server->remoteObject()->send<&VideoFrameProducerService::subscribeToVideoFrames>();

    EXPECT_THAT(first->sentSelectors(), IsEmpty());
    EXPECT_THAT(second->sentSelectors(), ElementsAre("subscribeToVideoFrames"));
    EXPECT_THAT(first->calls(), testing::Not(testing::Contains("invalidate")));
    EXPECT_TRUE(sendRate(*first));
}

TEST_F(BidirectionalXPCServiceServer, TheLaterFailureOfAReplacedConnectionClearsTheCurrentOne)
{
    server->start();
    int losses = 0;
    server->setOnLostConnection([&losses] { ++losses; });
    const auto first = Peer::connect(*listener);
    const auto second = Peer::connect(*listener);
    first->failWithInvalidation();

    EXPECT_FALSE(server->remoteObject());
    EXPECT_EQ(losses, 1);
}

TEST_F(BidirectionalXPCServiceServer, APeerThatDialsAgainAfterALossIsTheNewConnection)
{
    server->start();
    Peer::connect(*listener)->failWithInvalidation();
    ASSERT_FALSE(server->remoteObject());
    const auto peer = Peer::connect(*listener);

    EXPECT_TRUE(server->remoteObject());
}

TEST_F(BidirectionalXPCServiceServer, AConnectionAcceptedWithoutLocalObjectExportsNothingUntilOneIsSet)
{
    server->start();
    server->setLocalObject(nullptr);
    const auto peer = Peer::connect(*listener);
    EXPECT_EQ(peer->exportedObject().object, nullptr);
    EXPECT_FALSE(sendRate(*peer));

    server->setLocalObject(consumer);
    EXPECT_NE(peer->exportedObject().object, nullptr);
    EXPECT_TRUE(sendRate(*peer));
    EXPECT_EQ(consumer->rates, 1);
}

TEST_F(BidirectionalXPCServiceServer, SettingTheLocalObjectBeforeAnyConnectionExistsOnlyStoresIt)
{
    const auto other = std::make_shared<Consumer>();
    Journal journal;
    server->setLocalObject(other);
    EXPECT_THAT(journal.entries(), IsEmpty());

    server->start();
    const auto peer = Peer::connect(*listener);
    EXPECT_TRUE(sendRate(*peer));
    EXPECT_EQ(other->rates, 1);
    EXPECT_EQ(consumer->rates, 0);
}

TEST_F(BidirectionalXPCServiceServer, SettingTheLocalObjectToNoneWhileConnectedExportsNothing)
{
    server->start();
    const auto peer = Peer::connect(*listener);
    server->setLocalObject(nullptr);

    EXPECT_EQ(peer->calls().back(), "setExportedObject none");
    EXPECT_FALSE(sendRate(*peer));
}

TEST_F(BidirectionalXPCServiceServer, ReadingTheRemoteObjectWithoutConnectionYieldsNoneAndSendsNothing)
{
    Journal journal;
    EXPECT_FALSE(server->remoteObject());
    EXPECT_THAT(journal.entries(), IsEmpty());
}

TEST_F(BidirectionalXPCServiceServer, FetchesAFreshProxyOnEveryRead)
{
    server->start();
    const auto peer = Peer::connect(*listener);
    const auto before = peer->calls().size();
    server->remoteObject();
    server->remoteObject();

    EXPECT_EQ(peer->calls().size(), before + 2);
    EXPECT_EQ(peer->calls().back(), "remoteObjectProxy");
}

TEST_F(BidirectionalXPCServiceServer, APeerThatDoesNotConformYieldsNoneAndIsNotReportedAsGained)
{
    server->start();
    bool wasGained = false;
    server->setOnGainedConnection([&wasGained](const FrameServer::RemoteObject&) { wasGained = true; });
    const auto peer = Peer::connect(*listener, &xpc::describe<VideoFrameProducerService>());

    EXPECT_TRUE(peer->isAccepted());
    EXPECT_FALSE(server->remoteObject());
    EXPECT_FALSE(wasGained);
}

TEST_F(BidirectionalXPCServiceServer, AnInvalidatedConnectionIsLoggedForgottenAndReportedInThisOrder)
{
    server->start();
    const auto peer = Peer::connect(*listener);
    Journal journal;
    bool wasForgotten = false;
    std::vector<std::string> logsWhenLost;
    server->setOnLostConnection([&] {
        wasForgotten = !server->remoteObject();
        logsWhenLost = journal.logs();
    });
    peer->failWithInvalidation();

    EXPECT_TRUE(wasForgotten);
    EXPECT_THAT(logsWhenLost, ElementsAre("log error BidirectionalXPCServiceServer: "
                                          "The XPC connection was invalidated"));
}

TEST_F(BidirectionalXPCServiceServer, AnInterruptedConnectionIsTreatedLikeAnInvalidatedOneButForItsText)
{
    server->start();
    const auto peer = Peer::connect(*listener);
    Journal journal;
    int losses = 0;
    server->setOnLostConnection([&losses] { ++losses; });
    peer->failWithInterruption();

    EXPECT_EQ(losses, 1);
    EXPECT_FALSE(server->remoteObject());
    EXPECT_THAT(journal.logs(), ElementsAre("log error BidirectionalXPCServiceServer: "
                                            "The XPC connection was interrupted"));
}

TEST_F(BidirectionalXPCServiceServer, ALossWithoutClosureIsOnlyLogged)
{
    server->start();
    const auto peer = Peer::connect(*listener);
    peer->failWithInterruption();

    EXPECT_FALSE(server->remoteObject());
}

TEST_F(BidirectionalXPCServiceServer, ReleasesTheConnectionItDropsWithoutInvalidatingIt)
{
    server->start();
    const auto peer = Peer::connect(*listener);
    peer->failWithInterruption();

    EXPECT_THAT(peer->calls(), testing::Not(testing::Contains("invalidate")));
    EXPECT_EQ(peer->connection().use_count(), 1);
}

TEST_F(BidirectionalXPCServiceServer, AConnectionKeepsTheServerThatConfiguredIt)
{
    server->start();
    auto peer = Peer::connect(*listener);
    std::weak_ptr<FrameServer> weakServer = server;
    auto lifeline = std::exchange(server, FrameServer::create(xpc::Listener::anonymousListener()));
    lifeline.reset();
    EXPECT_FALSE(weakServer.expired());

    peer->failWithInvalidation();
    EXPECT_TRUE(weakServer.expired());
}

TEST_F(BidirectionalXPCServiceServer, AcceptanceLossAndSendingMayHappenOnDifferentThreads)
{
    server->start();
    server->setOnLostConnection([] {});
    std::atomic<bool> isDone = false;
    std::thread sender([&] {
        while (!isDone)
            if (const auto remote = server->remoteObject())
                remote->send<&VideoFrameProducerService::subscribeToVideoFrames>();
    });
    std::thread exporter([&] {
        while (!isDone)
            server->setLocalObject(consumer);
    });
    for (int i = 0; i < 200; ++i) {
        const auto peer = Peer::connect(*listener);
        std::thread([&peer] { peer->failWithInvalidation(); }).join();
    }
    isDone = true;
    sender.join();
    exporter.join();

    EXPECT_FALSE(server->remoteObject());
}

}  // namespace
}  // namespace pavo
