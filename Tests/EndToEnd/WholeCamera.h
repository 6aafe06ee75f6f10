#pragma once

#include "Tests/EndToEnd/CameraProcess.h"
#include "Tests/EndToEnd/PavoProcess.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Patience.h"
#include "Tests/Support/PipeWireSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace pavo::test {

// Where a camera finds its clients.
enum class Server {
    daemon,   // a desktop session's PipeWire
    embedded  // the camera's own
};
std::string nameOf(Server server);

// A camera in a process of its own, in a session and a namespace of its own. At the end it is asked to end,
// which has to work, so that every test also shows that nothing has harmed it.
class WholeCamera : public testing::Test {
protected:
    explicit WholeCamera(Server server = Server::embedded) : server_(server) {}
    void SetUp() override;
    void TearDown() override;

    CameraProcess& camera() { return *camera_; }
    PipeWireSession& session() { return *session_; }
    // Where the session and the camera keep their sockets; free for other files too.
    const std::string& folder() const { return session_->folder(); }
    // The socket that producers dial.
    std::string serviceSocket() const;

    // A client that traces its frames.
    static PavoProcess watch(const std::vector<std::string>& more = {});
    // A producer of the test pattern, of 640 × 360 and 60 a second where nothing else is said.
    static PavoProcess produce(const std::vector<std::string>& more = {});

    // Wait for frames that come from now on: of a producer, or of the placeholder.
    static bool seesProducer(PavoProcess& client, std::size_t frames = 3);
    static bool seesPlaceholder(PavoProcess& client, std::size_t frames = 3);
    // Wait until the process has reported as much as `expected`, and compare.
    static void expectStory(PavoProcess& process, const std::vector<std::string>& expected);

    bool waitForLosses(std::size_t count);
    bool waitForAdded(pid_t client);
    bool waitForRemoved(pid_t client);

private:
    const Server server_;
    TemporaryFolder names_;
    std::unique_ptr<PipeWireSession> session_;
    std::unique_ptr<CameraProcess> camera_;
};

// As a producer hears of them.
std::string added(pid_t client);
std::string removed(pid_t client);

}  // namespace pavo::test
