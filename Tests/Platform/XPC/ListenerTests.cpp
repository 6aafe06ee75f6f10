// Who reaches a listener's delegate on Linux, and how a listener bears with peers that do not speak.

#include "Tests/Platform/XPC/LinuxFixture.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Wait.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace {

// How often accepting fails before it works again, and how often it was tried meanwhile.
std::atomic<int> failuresLeft = 0;
std::atomic<int> acceptCalls = 0;

}  // namespace

extern "C" {
int __real_accept4(int socket, sockaddr* address, socklen_t* size, int flags);
int __wrap_accept4(int socket, sockaddr* address, socklen_t* size, int flags)
{
    ++acceptCalls;
    if (failuresLeft <= 0) return __real_accept4(socket, address, size, flags);
    --failuresLeft;
    errno = EMFILE;
    return -1;
}
}

namespace pavo::test {
namespace {

using XPCListenerTest = XPCTest;

TEST_F(XPCListenerTest, EndpointCarriesThePortAtOffset24)
{
    const auto endpoint = listener->endpoint();
    std::uint32_t atOffset = 0;
    std::memcpy(&atOffset, static_cast<const char*>(endpoint.object()) + 24, sizeof(atOffset));
    EXPECT_NE(atOffset, 0U);
    EXPECT_EQ(xpc::ListenerEndpoint::machPort(endpoint.object()), atOffset);
    int isListening = 0;
    socklen_t size = sizeof(isListening);
    ASSERT_EQ(::getsockopt(static_cast<int>(atOffset), SOL_SOCKET, SO_ACCEPTCONN, &isListening, &size), 0);
    EXPECT_EQ(isListening, 1);
}

TEST_F(XPCListenerTest, EndpointOfAnInvalidatedListenerHasNoPort)
{
    listener->invalidate();
    EXPECT_EQ(xpc::ListenerEndpoint::machPort(listener->endpoint().object()), 0U);
}

TEST_F(XPCListenerTest, PeersThatConnectBeforeResumeWaitForIt)
{
    const auto connection = connectByEndpoint();
    endLater(connection);
    const auto counts = countHandlers(*connection);
    connection->resume();
    lampOf(*connection).send<&Switching::switchOn>();
    ASSERT_TRUE(waitFor([&connection] { return connection->processIdentifier() != 0; }));
    EXPECT_EQ(house->acceptedCount(), 0U);

    listener->resume();

    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    EXPECT_EQ(counts->invalidations, 0);
}

TEST_F(XPCListenerTest, PeerReachesTheDelegateOnlyWhenItHasAuthenticated)
{
    listener->resume();
    auto stray = connectRaw(*listener);
    const auto connection = connectByEndpoint();
    endLater(connection);
    connection->resume();
    ASSERT_TRUE(waitFor([this] { return house->acceptedCount() == 1; }));
    ASSERT_TRUE(stray.authenticate());
    ASSERT_TRUE(waitFor([this] { return house->acceptedCount() == 2; }));
}

TEST_F(XPCListenerTest, SilentPeerIsDroppedAfterAWhile)
{
    listener->resume();
    auto silent = connectRaw(*listener);
    EXPECT_TRUE(silent.waitForEnd());
    EXPECT_EQ(house->acceptedCount(), 0U);
    EXPECT_TRUE(waitFor([] { return hasLogged("it did not authenticate"); }));
}

TEST_F(XPCListenerTest, PeerThatSpeaksNoDBusIsDropped)
{
    listener->resume();
    auto web = connectRaw(*listener);
    ASSERT_TRUE(web.send("GET / HTTP/1.1\r\n\r\n"));
    EXPECT_TRUE(web.waitForEnd());
    EXPECT_EQ(house->acceptedCount(), 0U);
    EXPECT_TRUE(
        waitFor([] { return hasLogged("Lost the connection to " + ownProcess() + ": authentication: "); }));
}

TEST_F(XPCListenerTest, EndlessAuthenticationLineIsDropped)
{
    listener->resume();
    auto endless = connectRaw(*listener);
    ASSERT_TRUE(endless.send(std::string(1, '\0') + std::string(600, 'A')));
    EXPECT_TRUE(endless.waitForEnd());
    EXPECT_TRUE(waitFor([] { return hasLogged("authentication line too long"); }));
}

TEST_F(XPCListenerTest, OldestOfTooManySilentPeersIsDroppedAndARealOneStillGetsIn)
{
    listener->resume();
    std::vector<RawPeer> silent;
    for (int i = 0; i < 17; ++i)
        silent.push_back(connectRaw(*listener));
    EXPECT_TRUE(silent.front().waitForEnd());
    EXPECT_TRUE(waitFor(
        [] { return hasLogged("Too many peers that do not authenticate: dropped " + ownProcess()); }));

    const auto connection = connectByEndpoint();
    endLater(connection);
    connection->resume();
    lampOf(*connection).send<&Switching::switchOn>();
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    EXPECT_EQ(house->acceptedCount(), 1U);
}

TEST_F(XPCListenerTest, ListenerWithoutFreeDescriptorsWaitsAndDoesNotSpin)
{
    listener->resume();
    failuresLeft = 3;
    acceptCalls = 0;
    const auto connection = connectByEndpoint();
    endLater(connection);
    connection->resume();
    lampOf(*connection).send<&Switching::switchOn>();
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    EXPECT_TRUE(hasLogged("Cannot accept a peer for now: Too many open files"));
    EXPECT_EQ(loggedErrorCount(), 1U);
    // Three failures, the peer, and that there is no other.
    EXPECT_LE(acceptCalls, 5);
}

}  // namespace
}  // namespace pavo::test
