// Who is said to be connected to the listeners of this process.

#include "Platform/XPC/linux/AcceptedPeers.h"
#include "Tests/Platform/XPC/LinuxFixture.h"
#include "Tests/Support/Wait.h"

#include <unistd.h>

#include <algorithm>

namespace pavo::test {
namespace {

using Peers = std::vector<xpc::AcceptedPeers::Peer>;

class XPCAcceptedPeersTest : public XPCTest {
protected:
    std::shared_ptr<xpc::Connection> connect()
    {
        const std::size_t before = house->acceptedCount();
        const auto connection = connectByEndpoint();
        endLater(connection);
        connection->resume();
        EXPECT_TRUE(waitFor([&] { return house->acceptedCount() == before + 1; }));
        return connection;
    }
    static Peers peers() { return xpc::AcceptedPeers::shared().connected(); }
    static bool waitForPeers(std::size_t count)
    {
        return waitFor([count] { return peers().size() == count; });
    }
};

TEST_F(XPCAcceptedPeersTest, NamesTheServiceTheProcessAndTheTime)
{
    registerName("com.example.lamps");
    listener->resume();
    EXPECT_TRUE(peers().empty());
    const auto before = std::chrono::steady_clock::now();
    const auto connection = connect();
    ASSERT_TRUE(waitForPeers(1));
    const auto peer = peers().front();
    EXPECT_EQ(peer.service, "com.example.lamps");
    EXPECT_EQ(peer.process, ::getpid());
    EXPECT_GE(peer.since, before);
    EXPECT_LE(peer.since, std::chrono::steady_clock::now());
}

TEST_F(XPCAcceptedPeersTest, TheLatestPeerIsTheLastAndOneThatGoesIsForgotten)
{
    listener->resume();
    const auto first = connect();
    ASSERT_TRUE(waitForPeers(1));
    const auto firstSince = peers().front().since;
    const auto second = connect();
    ASSERT_TRUE(waitForPeers(2));
    EXPECT_EQ(peers().front().since, firstSince);
    EXPECT_GE(peers().back().since, firstSince);
    first->invalidate();
    ASSERT_TRUE(waitForPeers(1));
    EXPECT_GE(peers().front().since, firstSince);
    second->invalidate();
    EXPECT_TRUE(waitForPeers(0));
}

TEST_F(XPCAcceptedPeersTest, APeerThatWasRefusedIsNone)
{
    house->answer = false;
    house->resumes = false;
    listener->resume();
    const auto connection = connectByEndpoint();
    const auto counts = countHandlers(*connection);
    connection->resume();
    ASSERT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
    EXPECT_TRUE(peers().empty());
}

TEST_F(XPCAcceptedPeersTest, APeerThatOnlyOpenedTheSocketIsNone)
{
    listener->resume();
    const auto silent = connectRaw(*listener);
    const auto connection = connect();
    ASSERT_TRUE(waitForPeers(1));
}

TEST_F(XPCAcceptedPeersTest, AListenerWithoutANameHasNoService)
{
    listener->resume();
    const auto connection = connect();
    ASSERT_TRUE(waitForPeers(1));
    EXPECT_EQ(peers().front().service, "");
}

TEST_F(XPCAcceptedPeersTest, APeerOutlivesItsListener)
{
    registerName("com.example.short-lived");
    listener->resume();
    const auto connection = connect();
    ASSERT_TRUE(waitForPeers(1));
    stopListening();
    EXPECT_TRUE(waitFor([] { return peers().size() == 1 && peers().front().service.empty(); }));
}

}  // namespace
}  // namespace pavo::test
