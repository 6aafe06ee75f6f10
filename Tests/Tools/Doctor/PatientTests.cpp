// The doctor with real patients: cameras, producers and clients on a real PipeWire.

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Patience.h"
#include "Tests/Support/PipeWireSession.h"
#include "Tests/Support/Wait.h"
#include "Tools/Doctor/Doctor.h"
#include "Tools/Doctor/LinuxSystem.h"
#include "Tools/StatusClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <signal.h>

#include <cstdlib>
#include <sstream>

namespace pavo::test {
namespace {

using namespace pavo::tools;
using testing::HasSubstr;

class Patient : public testing::Test {
protected:
    void SetUp() override
    {
        std::string why;
        if (!PipeWireSession::isAvailable(&why)) GTEST_SKIP() << why;
        ::unsetenv("PAVO_BOOTSTRAP_DIR");
        ::setenv("PAVO_LOG", "stderr", 1);
    }
    void startSession(PipeWireSession::Daemon daemon = PipeWireSession::Daemon::running)
    {
        session_ = std::make_unique<PipeWireSession>(daemon);
        ASSERT_TRUE(session_->isReady());
    }
    // As a process of its own, whose output is the file <command>.log.
    ChildProcess start(std::vector<std::string> arguments)
    {
        const std::string log = session_->folder() + "/" + arguments.front() + ".log";
        arguments.insert(arguments.begin(), PAVO_PROGRAM);
        return ChildProcess(arguments, log);
    }
    static bool waitForCamera(const std::string& remote = "pipewire-0")
    {
        return waitFor([&remote] { return PipeWireSession::node("pavo-camera", remote).has_value(); },
                       kPatience);
    }
    static Diagnosis examine() { return diagnose(LinuxSystem(Patience(kPatience, kPatience), PAVO_BUNDLE)); }
    static void expectProblem(const std::string& id, const std::string& text)
    {
        const Diagnosis diagnosis = examine();
        EXPECT_EQ(diagnosis.of(id).verdict, Verdict::problem) << asText(diagnosis);
        EXPECT_THAT(diagnosis.of(id).text, HasSubstr(text));
    }

    std::unique_ptr<PipeWireSession> session_;
};

TEST_F(Patient, ThatIsHealthyHasNoProblem)
{
    startSession();
    const auto camera = start({"camera"});
    ASSERT_TRUE(waitForCamera());
    const auto producer = start({"send"});
    const auto client = start({"view", "--seconds", "600"});
    std::string text;
    const bool isHealthy = waitFor(
        [this, &text] {
            ChildProcess doctor({PAVO_PROGRAM, "doctor"}, session_->folder() + "/doctor.log");
            const auto status = doctor.waitForExit(kPatience);
            text = readFile(session_->folder() + "/doctor.log");
            // Until producer and client have found the camera.
            return status == 0 && text.find("The producer sends.") != std::string::npos;
        },
        kPatience);
    EXPECT_TRUE(isHealthy) << text;
    EXPECT_THAT(text, HasSubstr("\nno problems, "));
    EXPECT_THAT(text, HasSubstr("The camera answers."));
    EXPECT_THAT(text, HasSubstr("PipeWire has the camera."));
    EXPECT_THAT(text, HasSubstr("A session manager links clients."));
    EXPECT_THAT(text, HasSubstr("Producers find the camera."));
}

TEST_F(Patient, WithoutACameraOrPipeWireIsToldSo)
{
    startSession(PipeWireSession::Daemon::absent);
    ChildProcess doctor({PAVO_PROGRAM, "doctor", "--json"}, session_->folder() + "/doctor.log");
    EXPECT_EQ(doctor.waitForExit(kPatience), 1);
    std::istringstream lines(readFile(session_->folder() + "/doctor.log"));
    nlohmann::json summary;
    bool isPipeWireMissing = false;
    for (std::string line; std::getline(lines, line);) {
        summary = nlohmann::json::parse(line, nullptr, false);
        ASSERT_TRUE(summary.is_object()) << line;
        isPipeWireMissing = isPipeWireMissing ||
                            (summary.value("id", "") == "no-pipewire" && summary["verdict"] == "problem");
    }
    EXPECT_TRUE(isPipeWireMissing);
    EXPECT_EQ(summary["event"], "summary");
    EXPECT_GE(summary["problems"], 1);
}

TEST_F(Patient, WithAnEmbeddedCameraNeedsPipeWireRemote)
{
    startSession(PipeWireSession::Daemon::absent);
    const auto camera = start({"camera"});
    ASSERT_TRUE(waitForCamera("pavo-0"));
    expectProblem("embedded-only", "serves one of its own, named pavo-0");
    ::setenv("PIPEWIRE_REMOTE", "pavo-0", 1);
    const Diagnosis diagnosis = examine();
    ::unsetenv("PIPEWIRE_REMOTE");
    for (const char* id :
         {"embedded-only", "no-pipewire", "remote-elsewhere", "node-missing", "camera-hangs"})
        EXPECT_EQ(diagnosis.of(id).verdict, Verdict::fine) << asText(diagnosis);

    // The camera leaves no client of its own PipeWire behind.
    ::setenv("PIPEWIRE_REMOTE", "pavo-0", 1);
    const auto client = start({"view", "--seconds", "600"});
    ::unsetenv("PIPEWIRE_REMOTE");
    EXPECT_TRUE(waitFor(
        [] {
            const auto status = askForStatus(kPatience);
            return status && !status.value().clients.empty();
        },
        kPatience));
    ASSERT_TRUE(session_->startDaemon());
    expectProblem("daemon-came-later", "process " + std::to_string(client.pid()) + " (pavo) is one");
}

TEST_F(Patient, WhoseCameraIsStoppedIsToldHowToWakeIt)
{
    startSession(PipeWireSession::Daemon::absent);
    const auto camera = start({"camera"});
    ASSERT_TRUE(waitForCamera("pavo-0"));
    camera.signal(SIGSTOP);
    const LinuxSystem impatient(Patience(std::chrono::milliseconds(300), kPatience));
    // A moment passes until the signal has arrived.
    const std::string remedy = "kill -CONT " + std::to_string(camera.pid());
    EXPECT_TRUE(waitFor([&] { return diagnose(impatient).of("camera-hangs").remedy == remedy; }, kPatience));
    camera.signal(SIGCONT);
}

TEST_F(Patient, WithTwoCamerasIsToldSo)
{
    startSession();
    const TemporaryFolder names;
    const auto camera = start({"camera"});
    ASSERT_TRUE(waitForCamera());
    ::setenv("PAVO_BOOTSTRAP_DIR", names.path().c_str(), 1);
    const auto second = start({"camera"});
    ::unsetenv("PAVO_BOOTSTRAP_DIR");
    EXPECT_TRUE(waitFor([] { return examine().of("two-cameras").verdict == Verdict::problem; }, kPatience));
    EXPECT_THAT(examine().of("two-cameras").text, HasSubstr("2 cameras named pavo-camera"));
}

TEST_F(Patient, WhosePipeWireRemoteLeadsElsewhereIsToldWhere)
{
    startSession();
    const auto camera = start({"camera"});
    ASSERT_TRUE(waitForCamera());
    ::setenv("PIPEWIRE_REMOTE", "pipewire-7", 1);
    expectProblem("remote-elsewhere", "to pipewire-7, but the camera is in pipewire-0");
    ::unsetenv("PIPEWIRE_REMOTE");
}

TEST_F(Patient, WhoseNamesAreElsewhereIsToldWhere)
{
    startSession();
    const TemporaryFolder names;
    const auto camera = start({"camera"});
    ASSERT_TRUE(waitForCamera());
    ::setenv("PAVO_BOOTSTRAP_DIR", names.path().c_str(), 1);
    const Diagnosis diagnosis = examine();
    ::unsetenv("PAVO_BOOTSTRAP_DIR");
    EXPECT_EQ(diagnosis.of("names-elsewhere").verdict, Verdict::problem);
    EXPECT_EQ(diagnosis.of("names-elsewhere").remedy, "unset PAVO_BOOTSTRAP_DIR");

    ::setenv("PAVO_BOOTSTRAP_DIR", names.path().c_str(), 1);
    const auto producer = start({"send"});
    ::unsetenv("PAVO_BOOTSTRAP_DIR");
    EXPECT_TRUE(
        waitFor([] { return examine().of("producer-elsewhere").verdict == Verdict::problem; }, kPatience));
}

TEST_F(Patient, WithoutASessionManagerIsToldSoAndHowManyClientsWait)
{
    startSession(PipeWireSession::Daemon::absent);
    ChildProcess daemon({"pipewire"}, session_->folder() + "/pipewire.log");
    ASSERT_TRUE(
        waitFor([] { return LinuxSystem(Patience(kPatience, kPatience)).pipeWire("pipewire-0").isThere(); },
                kPatience));
    ::setenv("PAVO_PIPEWIRE", "daemon", 1);
    const auto camera = start({"camera"});
    ::unsetenv("PAVO_PIPEWIRE");
    ASSERT_TRUE(waitForCamera());
    expectProblem("no-session-manager", "without a session manager");
    const auto client = start({"view"});
    EXPECT_TRUE(
        waitFor([] { return examine().of("client-not-linked").verdict == Verdict::problem; }, kPatience));
    EXPECT_THAT(examine().of("client-not-linked").text, HasSubstr("The client "));
    daemon.end(SIGTERM);
}

TEST_F(Patient, WhoseProducersAreCutOffIsToldWhere)
{
    startSession();
    const auto camera = start({"camera"});
    ASSERT_TRUE(waitForCamera());
    ASSERT_EQ(::unlink((session_->folder() + "/pavo/com.tarnwell.macos.cam.avextension").c_str()), 0);
    expectProblem("producers-cut-off",
                  "has no name " + session_->folder() + "/pavo/com.tarnwell.macos.cam.avextension");
}

}  // namespace
}  // namespace pavo::test
