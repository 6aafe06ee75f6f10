// What the system can refuse to a connection or a listener, and peers that may not connect at all: who is
// concerned gets a line in the log, everybody else goes on.

#include "Platform/XPC/linux/PeerLink.h"
#include "Platform/XPC/linux/WireNames.h"
#include "Tests/Platform/XPC/LinuxFixture.h"
#include "Tests/Support/Wait.h"

#include <mach/port_private.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <string>

namespace {

// How many of the next calls fail.
std::atomic<int> failingPeerQuestions = 0;
std::atomic<int> failingSocketPairs = 0;
std::atomic<int> failingWatches = 0;
std::atomic<int> failingPorts = 0;
std::atomic<int> failingSends = 0;
std::atomic<int> failingReads = 0;
// How many of the next calls succeed, but what they send cannot be read.
std::atomic<int> unreadableSends = 0;
// Whose process every peer is; negative: whose it is.
std::atomic<std::int64_t> peerUser = -1;

// Whether this call is one of those that fail.
bool takeFailure(std::atomic<int>& left)
{
    int before = left;
    while (before > 0 && !left.compare_exchange_weak(before, before - 1))
        ;
    return before > 0;
}

int refuse(int error)
{
    errno = error;
    return -1;
}

}  // namespace

extern "C" {

int __real_getsockopt(int socket, int level, int name, void* value, socklen_t* size);
int __wrap_getsockopt(int socket, int level, int name, void* value, socklen_t* size)
{
    const bool isAboutPeer = level == SOL_SOCKET && name == SO_PEERCRED;
    if (isAboutPeer && takeFailure(failingPeerQuestions)) return refuse(ENOBUFS);
    const int result = __real_getsockopt(socket, level, name, value, size);
    if (isAboutPeer && result == 0 && peerUser >= 0)
        static_cast<ucred*>(value)->uid = static_cast<uid_t>(peerUser);
    return result;
}

int __real_socketpair(int domain, int type, int protocol, int* pair);
int __wrap_socketpair(int domain, int type, int protocol, int* pair)
{
    return takeFailure(failingSocketPairs) ? refuse(EMFILE) : __real_socketpair(domain, type, protocol, pair);
}

int __real_epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event);
int __wrap_epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event)
{
    return operation == EPOLL_CTL_ADD && takeFailure(failingWatches)
               ? refuse(ENOSPC)
               : __real_epoll_ctl(epoll, operation, descriptor, event);
}

kern_return_t __real_mach_port_allocate(ipc_space_t task, mach_port_right_t right, mach_port_name_t* name);
kern_return_t __wrap_mach_port_allocate(ipc_space_t task, mach_port_right_t right, mach_port_name_t* name)
{
    return takeFailure(failingPorts) ? KERN_NO_SPACE : __real_mach_port_allocate(task, right, name);
}

ssize_t __real_send(int socket, const void* bytes, size_t size, int flags);
ssize_t __wrap_send(int socket, const void* bytes, size_t size, int flags)
{
    if (takeFailure(failingSends)) return refuse(ENOBUFS);
    if (takeFailure(unreadableSends)) failingReads = 1;
    return __real_send(socket, bytes, size, flags);
}

int __real_sd_bus_process(sd_bus* bus, sd_bus_message** message);
int __wrap_sd_bus_process(sd_bus* bus, sd_bus_message** message)
{
    return takeFailure(failingReads) ? -ENOMEM : __real_sd_bus_process(bus, message);
}
}

namespace pavo::test {
namespace {

class XPCRefusalTest : public XPCTest {
protected:
    // The listener drops the peer, says so, and lets the next one in.
    void expectDropped(RawPeer peer, const std::string& line)
    {
        EXPECT_TRUE(peer.waitForEnd());
        EXPECT_TRUE(waitFor([&line] { return hasLogged(line); })) << line;
        EXPECT_EQ(loggedErrorCount(), 1U);
        EXPECT_EQ(house->acceptedCount(), 0U);
        peerUser = -1;
        letIn();
    }

    RawPeer letIn()
    {
        auto peer = connectRaw(*listener);
        EXPECT_TRUE(peer.authenticate());
        EXPECT_TRUE(waitFor([this] { return house->acceptedCount() == 1; }));
        return peer;
    }

    // A connection that is made now ends, and says why.
    void expectEnd(const std::string& line)
    {
        const auto connection = connectByEndpoint();
        const auto counts = countHandlers(*connection);
        connection->resume();
        EXPECT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
        EXPECT_TRUE(hasLogged(line)) << line;
        EXPECT_EQ(loggedErrorCount(), 1U);
    }

    // The connection that was let in has ended, and nothing reached the lamp.
    void expectLost(const std::string& reason)
    {
        EXPECT_TRUE(waitFor([this] { return house->counts(0)->invalidations == 1; }));
        EXPECT_TRUE(hasLogged("Lost the connection to " + ownProcess() + ": " + reason)) << reason;
        EXPECT_EQ(loggedErrorCount(), 1U);
        EXPECT_EQ(house->lamp->callCount(), 0U);
    }

    static RawCall switchOn()
    {
        RawCall call;
        call.interface = "Tests.Switching";
        call.member = "switchOn";
        return call;
    }

    void TearDown() override
    {
        peerUser = -1;
        XPCTest::TearDown();
    }
};

TEST_F(XPCRefusalTest, PeerOfAnotherUserIsTurnedAway)
{
    auto stranger = connectRaw(*listener);
    const auto user = ::geteuid() + 1;
    peerUser = user;
    listener->resume();
    expectDropped(std::move(stranger), "Turned away " + ownProcess() + " of user " + std::to_string(user));
}

TEST_F(XPCRefusalTest, RootIsLetIn)
{
    peerUser = 0;
    listener->resume();
    letIn();
    EXPECT_EQ(loggedErrorCount(), 0U);
}

TEST_F(XPCRefusalTest, PeerThatTheSystemDoesNotKnowIsDropped)
{
    auto unknown = connectRaw(*listener);
    failingPeerQuestions = 1;
    listener->resume();
    expectDropped(std::move(unknown), "Cannot tell who the peer is: No buffer space available");
}

TEST_F(XPCRefusalTest, PeerIsDroppedWhereThereIsNoSocketForItsBus)
{
    listener->resume();
    failingSocketPairs = 1;
    expectDropped(connectRaw(*listener), "Cannot start a connection: Too many open files");
}

TEST_F(XPCRefusalTest, ConnectionEndsWhereThereIsNoSocketForItsBus)
{
    failingSocketPairs = 1;
    expectEnd("Cannot start a connection: Too many open files");
}

TEST_F(XPCRefusalTest, PeerThatCannotBeWatchedIsDropped)
{
    listener->resume();
    failingWatches = 1;
    expectDropped(connectRaw(*listener), "Cannot watch a connection: No space left on device");
}

TEST_F(XPCRefusalTest, ConnectionThatCannotBeWatchedEnds)
{
    failingWatches = 1;
    expectEnd("Cannot watch a connection: No space left on device");
}

TEST_F(XPCRefusalTest, ListenerThatCannotBeWatchedSaysSo)
{
    failingWatches = 1;
    listener->resume();
    EXPECT_TRUE(hasLogged("Cannot watch a listener: No space left on device"));
    EXPECT_EQ(loggedErrorCount(), 1U);
}

TEST_F(XPCRefusalTest, ListenerWithoutAPortHasNoPeers)
{
    failingPorts = 1;
    stopListening();
    listener = xpc::Listener::anonymousListener();
    EXPECT_EQ(xpc::ListenerEndpoint::machPort(listener->endpoint().object()), 0U);
    listener->resume();
    expectEnd("Cannot make a port to listen at: error 3");
}

TEST_F(XPCRefusalTest, PeerWhoseAuthenticationFindsNoRoomIsDropped)
{
    listener->resume();
    auto peer = connectRaw(*listener);
    failingSends = 1;
    ASSERT_TRUE(peer.send(std::string(1, '\0') + "AUTH EXTERNAL\r\n"));
    expectDropped(std::move(peer),
                  "Lost the connection to " + ownProcess() + ": no room for its authentication");
}

TEST_F(XPCRefusalTest, ConnectionWhoseMessageFindsNoRoomEnds)
{
    listener->resume();
    auto peer = letIn();
    failingSends = 1;
    ASSERT_TRUE(peer.send(switchOn().bytes()));
    expectLost("no room for its message");
}

TEST_F(XPCRefusalTest, ConnectionWhoseMessageCannotBeReadEnds)
{
    listener->resume();
    auto peer = letIn();
    unreadableSends = 1;
    ASSERT_TRUE(peer.send(switchOn().bytes()));
    expectLost("broken message: Cannot allocate memory");
}

TEST_F(XPCRefusalTest, ConnectionWhoseListenerNeverAnswersTakesOnlySoManyMessages)
{
    const auto connection = connectByEndpoint();
    const auto counts = countHandlers(*connection);
    connection->resume();
    ASSERT_TRUE(waitFor([&connection] { return connection->processIdentifier() != 0; }));
    for (int i = 0; i < 256; ++i)
        lampOf(*connection).send<&Switching::switchOn>();
    EXPECT_EQ(loggedErrorCount(), 0U);
    lampOf(*connection).send<&Switching::switchOn>();
    EXPECT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));
    EXPECT_TRUE(hasLogged("Process " + std::to_string(::getpid()) + " does not answer"));
}

// What a link tells: only that its peer has authenticated.
class Greeter final : public xpc::PeerLink::Observer {
public:
    using Link = std::shared_ptr<xpc::PeerLink>;

    void linkDidAuthenticate(const Link&) override { hasGreeted = true; }
    void linkDidReceive(const Link&, xpc::IncomingMessage) override { ADD_FAILURE(); }
    void linkDidReceiveReply(const Link&, xpc::IncomingReply) override { ADD_FAILURE(); }
    void linkWasLost(const Link&, xpc::PeerLink::Loss) override { ADD_FAILURE(); }
    const xpc::ProtocolDescription* interfaceForPeer() const override { return nullptr; }

    std::atomic<bool> hasGreeted = false;
};

TEST_F(XPCRefusalTest, LinkThatDoesNotReadFindsOutThatItsPeerIsGoneWhenItWrites)
{
    std::array<int, 2> pair{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
    RawPeer peer{UniqueFd(pair[0])};
    const auto greeter = std::make_shared<Greeter>();
    const auto link = xpc::PeerLink::create(UniqueFd(pair[1]), xpc::PeerLink::Role::server);
    ASSERT_TRUE(link);
    link->setObserver(greeter);
    ASSERT_TRUE(link->start());
    ASSERT_TRUE(peer.authenticate());
    // It pauses then.
    ASSERT_TRUE(waitFor([&greeter] { return greeter->hasGreeted.load(); }));
    peer.close();
    const auto target = xpc::findBySelector(xpc::describe<Lamp>(), "switchOn");
    ASSERT_TRUE(target);
    EXPECT_FALSE(link->send({*target, {}}));
    EXPECT_TRUE(hasLogged("Process " + std::to_string(::getpid()) + " is gone: Connection reset by peer"));
    EXPECT_EQ(loggedErrorCount(), 0U) << "peers may go";
    link->close();
}

}  // namespace
}  // namespace pavo::test
