// What a process says of its cameras, while real clients come and go.

#include "Platform/CoreMediaIO/linux/CameraReport.h"
#include "Tests/Platform/CoreMediaIO/ClientProcess.h"
#include "Tests/Platform/CoreMediaIO/TestCamera.h"
#include "Tests/Support/CapturedLog.h"
#include "Tests/Support/Patience.h"
#include "Tests/Support/PipeWireSession.h"
#include "Tests/Support/Wait.h"

#include <CoreVideo/CoreVideo.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

namespace {

std::atomic<bool> arePicturesUnreadable = false;

}  // namespace

extern "C" {
CVReturn __real_CVPixelBufferLockBaseAddress(CVPixelBufferRef buffer, CVPixelBufferLockFlags flags);
CVReturn __wrap_CVPixelBufferLockBaseAddress(CVPixelBufferRef buffer, CVPixelBufferLockFlags flags)
{
    return arePicturesUnreadable ? kCVReturnError : __real_CVPixelBufferLockBaseAddress(buffer, flags);
}
}

namespace cmio {
namespace {

using pavo::test::eventually;
using pavo::test::PipeWireSession;
using test::ClientProcess;
using test::TestCamera;

class CameraReportTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::string why;
        if (!PipeWireSession::isAvailable(&why)) GTEST_SKIP() << why;
    }
    void TearDown() override
    {
        camera_.reset();
        session_.reset();
    }

    void publish(PipeWireSession::Daemon daemon)
    {
        const bool hasDaemon = daemon == PipeWireSession::Daemon::running;
        session_ = std::make_unique<PipeWireSession>(daemon);
        ASSERT_TRUE(session_->isReady());
        if (!hasDaemon) ::setenv("PIPEWIRE_REMOTE", "pavo-0", 1);
        camera_ = std::make_unique<TestCamera>();
        camera_->publish();
        ASSERT_TRUE(eventually([] { return report().nodeId.has_value(); }));
    }
    // Clients that start from now on say that a portal has brought them.
    void bringClientsThroughAPortal(const std::string& application)
    {
        const std::string folder = session_->folder() + "/.config/pipewire/client.conf.d";
        std::filesystem::create_directories(folder);
        std::ofstream(folder + "/portal.conf")
            << "context.properties = { pipewire.access.portal.app_id = \"" << application << "\" }\n";
    }

    static CameraReport report()
    {
        const auto service = reportCameras();
        return service && service->cameras.size() == 1 ? service->cameras.front() : CameraReport();
    }
    static PipeWireState pipeWire()
    {
        const auto service = reportCameras();
        return service ? service->pipeWire : PipeWireState::waiting;
    }
    static std::optional<ClientReport> clientOf(pid_t process)
    {
        for (const auto& client : report().clients)
            if (client.process == process) return client;
        return std::nullopt;
    }

    std::unique_ptr<PipeWireSession> session_;
    std::unique_ptr<TestCamera> camera_;
};

TEST_F(CameraReportTest, ThereIsNoneWithoutACamera)
{
    EXPECT_FALSE(reportCameras());
    publish(PipeWireSession::Daemon::absent);
    camera_.reset();
    EXPECT_TRUE(eventually([] { return !reportCameras(); }));
}

TEST_F(CameraReportTest, TellsWhereAnIdleCameraIs)
{
    publish(PipeWireSession::Daemon::running);
    const auto idle = report();
    EXPECT_EQ(pipeWire(), PipeWireState::daemon);
    EXPECT_EQ(idle.nodeName, "pavo-camera");
    EXPECT_EQ(idle.label, "Pavo Camera");
    const auto node = PipeWireSession::node("pavo-camera");
    ASSERT_TRUE(node);
    EXPECT_EQ(idle.nodeId, node->id);
    EXPECT_FALSE(idle.isStreaming);
    EXPECT_EQ(idle.layout, std::nullopt);
    EXPECT_TRUE(idle.clients.empty());
    EXPECT_EQ(idle.frames.sent, 0U);
}

TEST_F(CameraReportTest, FollowsItsClientsAndItsFrames)
{
    publish(PipeWireSession::Daemon::absent);
    EXPECT_EQ(pipeWire(), PipeWireState::embedded);
    camera_->startSending(test::makePicture(kCVPixelFormatType_422YpCbCr8, 640, 360, {255, 0, 0}));
    const auto before = std::chrono::steady_clock::now();
    ClientProcess first({"--format", "NV12"});
    ASSERT_TRUE(first.waitForFrames(3)) << first.output();
    ClientProcess second({"--clients", "2"});
    ASSERT_TRUE(eventually([&] { return clientOf(first.pid()) && clientOf(second.pid()); }));

    const auto busy = report();
    EXPECT_EQ(busy.clients.size(), 2U) << "two streams of a process are one client";
    EXPECT_TRUE(busy.isStreaming);
    EXPECT_EQ(busy.layout, (VideoLayout{VideoFormat::nv12, 1920, 1080}));
    for (const auto& client : busy.clients) {
        EXPECT_EQ(client.program, "CameraTestClient");
        EXPECT_EQ(client.portalApplication, "");
        EXPECT_GE(client.since, before);
    }
    EXPECT_TRUE(eventually([] { return report().frames.framesPerSecond > 0; }));
    EXPECT_GE(busy.frames.drawn, 3U);
    EXPECT_FALSE(busy.frames.isForeign);
    EXPECT_LE(busy.frames.drawn + busy.frames.dropped(), busy.frames.sent);

    const auto since = clientOf(second.pid())->since;
    first.end(SIGKILL);
    ASSERT_TRUE(eventually([] { return report().clients.size() == 1; }));
    EXPECT_EQ(report().clients.front().process, second.pid());
    EXPECT_EQ(report().clients.front().since, since);
    second.end(SIGTERM);
    ASSERT_TRUE(eventually([] { return report().clients.empty() && !report().isStreaming; }));
    const auto quiet = report();
    EXPECT_EQ(quiet.frames.sent, quiet.frames.drawn + quiet.frames.dropped())
        << "none is on its way any more";
}

TEST_F(CameraReportTest, NamesTheApplicationOfAClientThatCameThroughAPortal)
{
    publish(PipeWireSession::Daemon::absent);
    const ClientProcess direct;
    ASSERT_TRUE(eventually([&] { return clientOf(direct.pid()).has_value(); }));
    bringClientsThroughAPortal("org.example.Meeting");
    const ClientProcess viaPortal;
    ASSERT_TRUE(eventually([&] { return clientOf(viaPortal.pid()).has_value(); })) << viaPortal.output();
    EXPECT_EQ(clientOf(direct.pid())->portalApplication, "");
    EXPECT_EQ(clientOf(viaPortal.pid())->portalApplication, "org.example.Meeting");
}

TEST_F(CameraReportTest, CountsWhatCannotBeReadAndSaysItOnce)
{
    publish(PipeWireSession::Daemon::absent);
    const ClientProcess client;
    const auto picture = test::makePicture(kCVPixelFormatType_422YpCbCr8, 64, 48, {0, 0, 255});
    camera_->startSending(picture);
    ASSERT_TRUE(client.waitForFrames(1));
    pavo::test::CapturedLog log;
    arePicturesUnreadable = true;
    EXPECT_TRUE(eventually([] { return report().frames.unusable > 1; }));
    arePicturesUnreadable = false;
    const auto drawn = report().frames.drawn;
    EXPECT_TRUE(eventually([drawn] { return report().frames.drawn > drawn; }));
    const std::string complaint = "Dropping samples of format '2vuy': they cannot be read or converted";
    const auto& text = log.end();
    const auto found = text.find(complaint);
    ASSERT_NE(found, std::string::npos) << text;
    EXPECT_EQ(text.find(complaint, found + 1), std::string::npos) << "said for each frame";
}

TEST_F(CameraReportTest, WaitsWhereNoPipeWireAnswers)
{
    session_ = std::make_unique<PipeWireSession>(PipeWireSession::Daemon::absent);
    ASSERT_TRUE(session_->isReady());
    ::setenv("PAVO_PIPEWIRE", "daemon", 1);
    camera_ = std::make_unique<TestCamera>();
    camera_->publish();
    ASSERT_TRUE(eventually([] { return reportCameras().has_value() && !reportCameras()->cameras.empty(); }));
    EXPECT_EQ(pipeWire(), PipeWireState::waiting);
    EXPECT_EQ(report().nodeName, "pavo-camera");
    EXPECT_EQ(report().nodeId, std::nullopt);
    ASSERT_TRUE(session_->startDaemon());
    EXPECT_TRUE(eventually([] { return pipeWire() == PipeWireState::daemon; }));
    session_->killDaemon();
    EXPECT_TRUE(eventually([] { return pipeWire() == PipeWireState::waiting; }));
    ::unsetenv("PAVO_PIPEWIRE");
}

}  // namespace
}  // namespace cmio
