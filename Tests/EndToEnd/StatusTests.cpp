// What `pavo status` says of a real camera while producers and clients come and go, and what is said where
// there is none, or one too many.

#include "Tests/EndToEnd/WholeCamera.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/ProcessFacts.h"
#include "Tests/Support/PseudoTerminal.h"

#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace pavo::test {
namespace {

using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

Ended runPavo(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), pavoProgram());
    return runToItsEnd(arguments);
}

// An empty object where the command failed.
json askStatus()
{
    const Ended ended = runPavo({"status", "--json"});
    const json status = json::parse(ended.output, nullptr, false);
    return ended.status == 0 && status.is_object() ? status : json::object();
}

bool waitForState(const std::string& state)
{
    return eventually([&] { return askStatus().value("state", "") == state; });
}

std::vector<std::pair<pid_t, std::string>> clientsIn(const json& status)
{
    std::vector<std::pair<pid_t, std::string>> clients;
    for (const auto& client : status["clients"])
        clients.emplace_back(client["pid"], client["program"]);
    return clients;
}

class CameraStatusOnEitherServer : public WholeCamera, public testing::WithParamInterface<Server> {
protected:
    CameraStatusOnEitherServer() : WholeCamera(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(With, CameraStatusOnEitherServer, testing::Values(Server::daemon, Server::embedded),
                         [](const auto& test) { return nameOf(test.param); });

TEST_P(CameraStatusOnEitherServer, FollowsProducersAndClients)
{
    const json idle = askStatus();
    ASSERT_FALSE(idle.empty());
    EXPECT_EQ(idle["pid"], camera().pid());
    EXPECT_EQ(idle["state"], "idle");
    EXPECT_EQ(idle["pipewire"], GetParam() == Server::daemon ? "daemon" : "embedded");
    EXPECT_EQ(idle["node"]["name"], "pavo-camera");
    EXPECT_EQ(idle["node"]["label"], "Pavo Camera");
    EXPECT_TRUE(idle["producer"].is_null()) << "who asks is no producer";
    EXPECT_EQ(idle["clients"], json::array());

    PavoProcess first = watch();
    ASSERT_TRUE(seesPlaceholder(first));
    ASSERT_TRUE(waitForState("placeholder"));
    const json placeholder = askStatus();
    EXPECT_EQ(clientsIn(placeholder), (std::vector{std::pair(first.pid(), std::string("pavo"))}));
    EXPECT_EQ(placeholder["format"], (json{{"pixel", "YUY2"}, {"width", 1920}, {"height", 1080}}));
    const auto node = PipeWireSession::node("pavo-camera");
    ASSERT_TRUE(node);
    EXPECT_EQ(placeholder["node"]["id"], node->id);
    EXPECT_GT(placeholder["frames"]["drawn"], 0);
    EXPECT_GT(placeholder["frames"]["rate"], 0.0);

    PavoProcess producer = produce();
    ASSERT_TRUE(seesProducer(first));
    ChildProcess second({PAVO_TEST_CLIENT});
    ASSERT_TRUE(eventually([] { return askStatus()["clients"].size() == 2; }));
    const json live = askStatus();
    EXPECT_EQ(live["state"], "live");
    EXPECT_EQ(live["producer"]["pid"], producer.pid());
    EXPECT_EQ(live["producer"]["program"], "pavo");
    EXPECT_THAT(clientsIn(live), testing::UnorderedElementsAre(std::pair(first.pid(), "pavo"),
                                                               std::pair(second.pid(), "CameraTestClient")));
    EXPECT_GT(live["frames"]["drawn"], placeholder["frames"]["drawn"]);
    EXPECT_GT(live["uptime_s"], idle["uptime_s"]);

    EXPECT_EQ(producer.end(SIGTERM), 0);
    ASSERT_TRUE(waitForState("placeholder"));
    EXPECT_TRUE(eventually([] { return askStatus()["producer"].is_null(); }));
    second.end(SIGKILL);
    ASSERT_TRUE(eventually([] { return askStatus()["clients"].size() == 1; }));
    EXPECT_EQ(first.end(SIGTERM), 0);
    ASSERT_TRUE(waitForState("idle"));
}

class CameraStatusTest : public WholeCamera {};

TEST_F(CameraStatusTest, NamesTheApplicationOfAClientThatCameThroughAPortal)
{
    const std::string configuration = folder() + "/.config/pipewire/client.conf.d";
    std::filesystem::create_directories(configuration);
    std::ofstream(configuration + "/portal.conf")
        << "context.properties = { pipewire.access.portal.app_id = \"org.example.Meeting\" }\n";
    PavoProcess client = watch();
    ASSERT_TRUE(eventually([] { return askStatus()["clients"].size() == 1; }));
    EXPECT_EQ(askStatus()["clients"][0]["app_id"], "org.example.Meeting");
    EXPECT_EQ(askStatus()["clients"][0]["pid"], client.pid());
    EXPECT_THAT(runPavo({"status"}).output, HasSubstr(", through a portal as org.example.Meeting\n"));
}

TEST_F(CameraStatusTest, TellsPeopleInLines)
{
    const Ended ended = runPavo({"status"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.output, StartsWith("Pavo Camera "));
    EXPECT_THAT(ended.output, HasSubstr(", process " + std::to_string(camera().pid()) + ", up for "));
    EXPECT_THAT(ended.output, HasSubstr("State     idle: nobody watches\n"));
    EXPECT_THAT(ended.output, HasSubstr("Producer  none\n"));
}

TEST_F(CameraStatusTest, QuestionsLeaveNothingBehind)
{
    ASSERT_FALSE(askStatus().empty());
    const std::size_t descriptors = openDescriptorCount(camera().pid());
    for (int i = 0; i < 5; ++i)
        EXPECT_FALSE(askStatus().empty());
    EXPECT_TRUE(eventually([&] { return openDescriptorCount(camera().pid()) <= descriptors; }));
    EXPECT_EQ(camera().countWith("Received XPC connection"), 0U) << "the product is not asked";
}

TEST_F(CameraStatusTest, WritesALineEachSecondUntilTheCameraEnds)
{
    const TemporaryFolder output;
    const std::string path = output.path() + "/output";
    ChildProcess watching({pavoProgram(), "status", "--json", "--watch"}, path);
    const auto lines = [&path] {
        const std::string text = readFile(path);
        return std::count(text.begin(), text.end(), '\n');
    };
    ASSERT_TRUE(eventually([&] { return lines() >= 2; })) << readFile(path);
    ChildProcess other({pavoProgram(), "status", "--json", "--watch"});
    watching.signal(SIGINT);
    EXPECT_EQ(watching.waitForExit(kPatience), 0);
    EXPECT_EQ(camera().end(SIGTERM), 0);
    EXPECT_EQ(other.waitForExit(kPatience), 1);
}

constexpr const char* kAlternateScreen = "\x1b[?1049h";
constexpr const char* kUsualScreen = "\x1b[?25h\x1b[?1049l";

TEST_F(CameraStatusTest, ShowsAPageOnATerminalAndGivesTheTerminalBack)
{
    PseudoTerminal terminal({pavoProgram(), "status", "--watch"});
    ASSERT_TRUE(terminal.readUntilText("\x1b[HPavo Camera ")) << terminal.output();
    EXPECT_THAT(terminal.output(), StartsWith(kAlternateScreen));
    EXPECT_TRUE(terminal.readUntilText("State     idle: nobody watches\x1b[K\r"));
    EXPECT_TRUE(terminal.readUntilText("Ctrl-C ends this."));

    terminal.resize(80, 1);
    EXPECT_TRUE(terminal.readUntil([](const std::string& all) {
        const auto page = all.substr(all.rfind("\x1b[H"));
        return page.find("\x1b[K\x1b[J") != std::string::npos && page.find('\n') == std::string::npos;
    })) << "one line to a page";

    terminal.type("\x03");
    EXPECT_EQ(terminal.waitForExit(), 0);
    EXPECT_THAT(terminal.output(), EndsWith(kUsualScreen));
    EXPECT_TRUE(terminal.isRestored());
}

TEST_F(CameraStatusTest, LeavesTheTerminalToTheShellWhileItIsStopped)
{
    PseudoTerminal terminal(underShell({pavoProgram(), "status", "--watch"}));
    ASSERT_TRUE(terminal.readUntilText("Ctrl-C ends this.")) << terminal.output();
    terminal.type("\x1a");
    ASSERT_TRUE(terminal.readUntilText("given back")) << terminal.output();
    EXPECT_THAT(terminal.output(), HasSubstr(kUsualScreen));
    EXPECT_TRUE(terminal.isRestored());
    terminal.forget();
    terminal.type("\n");
    ASSERT_TRUE(terminal.readUntilText("Ctrl-C ends this.")) << terminal.output();
    EXPECT_THAT(terminal.output(), HasSubstr(kAlternateScreen));
    terminal.type("\x03");
    EXPECT_EQ(terminal.waitForExit(), 0);
    EXPECT_THAT(terminal.output(), EndsWith(kUsualScreen));
    EXPECT_TRUE(terminal.isRestored());
}

TEST_F(CameraStatusTest, APageOutlivesTheCamera)
{
    PseudoTerminal terminal({pavoProgram(), "status", "--watch"});
    ASSERT_TRUE(terminal.readUntilText("\x1b[HPavo Camera "));
    EXPECT_EQ(camera().end(SIGTERM), 0);
    EXPECT_TRUE(terminal.readUntilText("\x1b[Hno camera is running; \"pavo camera\" starts one"));
    CameraProcess next;
    terminal.forget();
    EXPECT_TRUE(terminal.readUntilText("\x1b[HPavo Camera "));
    EXPECT_TRUE(terminal.readUntilText(", process " + std::to_string(next.pid()) + ", "));
    EXPECT_EQ(next.end(SIGTERM), 0);
    ::kill(terminal.pid(), SIGTERM);
    EXPECT_EQ(terminal.waitForExit(), 0);
}

TEST_F(CameraStatusTest, ASecondCameraSaysWhichOneRunsAndHarmsNobody)
{
    PavoProcess client = watch();
    PavoProcess producer = produce();
    ASSERT_TRUE(seesProducer(client));
    const Ended second = runPavo({"camera"});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.output, "pavo camera: a camera is running already, as process " +
                                 std::to_string(camera().pid()) + "; one user has one camera\n");
    EXPECT_TRUE(seesProducer(client));
    EXPECT_EQ(askStatus()["pid"], camera().pid());
    EXPECT_EQ(camera().countWith("Lost the connection"), 0U);
}

TEST_F(CameraStatusTest, ACameraComesAfterOneThatWasKilled)
{
    EXPECT_EQ(camera().end(SIGTERM), 0);
    CameraProcess killed;
    ASSERT_TRUE(eventually([&] { return askStatus().value("pid", 0) == killed.pid(); }));
    killed.signal(SIGKILL);
    ASSERT_TRUE(eventually([&] { return !killed.isRunning(); }));
    EXPECT_EQ(runPavo({"status"}).output, "pavo status: no camera is running; \"pavo camera\" starts one\n");
    CameraProcess next;
    EXPECT_TRUE(eventually([&] { return askStatus().value("pid", 0) == next.pid(); }));
    EXPECT_EQ(next.end(SIGTERM), 0);
}

TEST_F(CameraStatusTest, SaysThatACameraDoesNotAnswer)
{
    camera().signal(SIGSTOP);
    const Ended ended = runPavo({"status"});
    camera().signal(SIGCONT);
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.output, StartsWith("pavo status: a camera is running, but it does not answer; "));
    EXPECT_FALSE(askStatus().empty());
}

// A camera that no PipeWire takes.
class UnseenCamera : public testing::Test {
protected:
    void SetUp() override
    {
        std::string why;
        if (!PipeWireSession::isAvailable(&why)) GTEST_SKIP() << why;
        session_ = std::make_unique<PipeWireSession>(PipeWireSession::Daemon::absent);
        ASSERT_TRUE(session_->isReady());
        ::setenv("PAVO_BOOTSTRAP_DIR", names_.path().c_str(), 1);
        ::setenv("PAVO_LOG", "stderr", 1);
    }
    void TearDown() override
    {
        for (const char* name : {"PAVO_BOOTSTRAP_DIR", "PAVO_LOG", "PAVO_PIPEWIRE"})
            ::unsetenv(name);
    }
    // Starts one that talks to people.
    ChildProcess startCamera() const { return ChildProcess({pavoProgram(), "camera"}, output()); }
    std::string output() const { return names_.path() + "/output"; }
    bool waitForText(const std::string& text) const
    {
        return eventually([&] { return readFile(output()).find(text) != std::string::npos; });
    }

    const TemporaryFolder names_;
    std::unique_ptr<PipeWireSession> session_;
};

TEST_F(UnseenCamera, SaysThatItWaitsForADaemonAndAppearsWithIt)
{
    ::setenv("PAVO_PIPEWIRE", "daemon", 1);
    ChildProcess camera = startCamera();
    ASSERT_TRUE(waitForText("No PipeWire daemon answers, and PAVO_PIPEWIRE=daemon asks for one"))
        << readFile(output());
    const json status = askStatus();
    EXPECT_EQ(status.value("state", ""), "waiting");
    EXPECT_EQ(status.value("pipewire", ""), "waiting");
    EXPECT_TRUE(camera.isRunning());
    ASSERT_TRUE(session_->startDaemon());
    EXPECT_TRUE(waitForState("idle"));
    camera.signal(SIGTERM);
    EXPECT_EQ(camera.waitForExit(kPatience), 0);
}

TEST_F(UnseenCamera, SaysThatThereIsNoFolderForAPipeWireOfItsOwn)
{
    ::setenv("PAVO_PIPEWIRE", "embedded", 1);
    for (const auto& folder : {std::optional<std::string>(), std::optional(names_.path() + "/output")}) {
        // Not set, or a file.
        if (folder)
            ::setenv("XDG_RUNTIME_DIR", folder->c_str(), 1);
        else
            ::unsetenv("XDG_RUNTIME_DIR");
        ChildProcess camera = startCamera();
        EXPECT_TRUE(waitForText("Is XDG_RUNTIME_DIR a folder that can be written to?")) << readFile(output());
        EXPECT_EQ(askStatus().value("state", ""), "waiting");
        camera.signal(SIGTERM);
        EXPECT_EQ(camera.waitForExit(kPatience), 0);
    }
}

}  // namespace
}  // namespace pavo::test
