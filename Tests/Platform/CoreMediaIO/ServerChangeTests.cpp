// The camera where the PipeWire daemon comes later than it.

#include "Tests/Platform/CoreMediaIO/CameraInPipeWire.h"
#include "Tests/Platform/CoreMediaIO/ClientProcess.h"
#include "Tests/Support/Patience.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace cmio::test {
namespace {

using pavo::test::kPatience;
using pavo::test::PipeWireSession;
using pavo::test::waitFor;

class CameraBeforeTheDaemon : public CameraInPipeWire {
protected:
    void start(const char* server)
    {
        startSession(PipeWireSession::Daemon::absent);
        ::setenv("PAVO_PIPEWIRE", server, 1);
        publish("pavo-0");
        send();
    }
    static bool isInDaemon() { return PipeWireSession::node(kNode).has_value(); }
    static bool isInItsOwnServer() { return PipeWireSession::node(kNode, "pavo-0").has_value(); }
};

TEST_F(CameraBeforeTheDaemon, MovesIntoADaemonThatComes)
{
    start("auto");
    ASSERT_TRUE(session_->startDaemon());
    ASSERT_TRUE(waitFor(isInDaemon, kPatience));
    EXPECT_FALSE(isInItsOwnServer());
    const ClientProcess client;
    EXPECT_TRUE(client.waitForFrames(5));
    // And stays a daemon's camera.
    session_->killDaemon();
    ASSERT_TRUE(waitForProcesses({}, kPatience));
    ASSERT_TRUE(session_->startDaemon());
    EXPECT_TRUE(waitFor(isInDaemon, kPatience));
    EXPECT_FALSE(isInItsOwnServer());
}

TEST_F(CameraBeforeTheDaemon, StaysWithItsClientsAsLongAsTheyWatch)
{
    start("auto");
    ClientProcess first({"--remote", "pavo-0"});
    ASSERT_TRUE(first.waitForFrames(3));
    ClientProcess second({"--remote", "pavo-0"});
    ASSERT_TRUE(second.waitForFrames(3));
    ASSERT_TRUE(session_->startDaemon());
    EXPECT_TRUE(first.waitForMoreFrames(30));
    first.end(SIGKILL);
    ASSERT_TRUE(waitForProcesses({second.pid()}, kPatience));
    EXPECT_TRUE(second.waitForMoreFrames(30));
    EXPECT_FALSE(isInDaemon());
    second.end(SIGTERM);
    EXPECT_TRUE(waitFor(isInDaemon, kPatience));
    EXPECT_FALSE(isInItsOwnServer());
    const auto events = camera_->events();
    EXPECT_EQ(std::count(events.begin(), events.end(), "start"), 1);
    EXPECT_EQ(std::count(events.begin(), events.end(), "stop"), 1);
}

TEST_F(CameraBeforeTheDaemon, IsNotMisledByASocketThatNobodyAnswersOn)
{
    start("auto");
    const std::string path = session_->folder() + "/pipewire-0";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int deaf = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(deaf, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ClientProcess client({"--remote", "pavo-0"});
    EXPECT_TRUE(client.waitForFrames(5));
    client.end(SIGTERM);
    ASSERT_TRUE(waitForProcesses({}, kPatience));
    EXPECT_TRUE(isInItsOwnServer());
    ::close(deaf);
    ASSERT_TRUE(session_->startDaemon());
    EXPECT_TRUE(waitFor(isInDaemon, kPatience));
}

TEST_F(CameraBeforeTheDaemon, StaysInItsOwnServerWhereItIsToldTo)
{
    start("embedded");
    ASSERT_TRUE(session_->startDaemon());
    ClientProcess client({"--remote", "pavo-0"});
    EXPECT_TRUE(client.waitForFrames(30));
    client.end(SIGTERM);
    ASSERT_TRUE(waitForProcesses({}, kPatience));
    EXPECT_TRUE(isInItsOwnServer());
    EXPECT_FALSE(isInDaemon());
}

}  // namespace
}  // namespace cmio::test
