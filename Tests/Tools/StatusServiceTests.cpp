// What a camera answers to those who ask how it is, and what they make of other answers. The cameras are made
// up here; the question and the answer travel as they always do.

#include "Tools/StatusService.h"

#include "CMIOExtensionSupport/VideoFrameService.h"
#include "Platform/CoreMediaIO/linux/CameraReport.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Wait.h"
#include "Tools/CameraStatusService.h"
#include "Tools/StatusClient.h"

#include <gmock/gmock.h>
#include <servers/bootstrap.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace {

std::mutex reportMutex;
// Never destroyed: connections may ask until the process is gone.
std::optional<cmio::ServiceReport>& currentReport = *new std::optional<cmio::ServiceReport>;

void setReport(std::optional<cmio::ServiceReport> report)
{
    const std::lock_guard lock(reportMutex);
    currentReport = std::move(report);
}

}  // namespace

namespace cmio {

std::optional<ServiceReport> reportCameras()
{
    const std::lock_guard lock(reportMutex);
    return currentReport;
}

}  // namespace cmio

namespace pavo::tools {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Clock = std::chrono::steady_clock;
using State = CameraStatus::State;

cmio::ServiceReport watchedCamera()
{
    cmio::CameraReport camera;
    camera.nodeName = "pavo-camera";
    camera.label = "Pavo Camera";
    camera.nodeId = 7;
    camera.layout = {cmio::VideoFormat::nv12, 1280, 720};
    camera.clients = {{11, "firefox", "org.mozilla.firefox", Clock::now() - std::chrono::seconds(100)},
                      {12, "obs", "", Clock::now()}};
    camera.frames.sent = 100;
    camera.frames.drawn = 80;
    camera.frames.replaced = 5;
    camera.frames.withoutBuffer = 4;
    camera.frames.unusable = 3;
    camera.frames.unwatched = 2;
    camera.frames.framesPerSecond = 29.97;
    return {cmio::PipeWireState::daemon, {camera}};
}

void registerListener(xpc::Listener& listener, std::string_view name)
{
    mach_port_t user = MACH_PORT_NULL;
    ASSERT_EQ(bootstrap_parent(bootstrap_port, &user), BOOTSTRAP_SUCCESS);
    name_t buffer{};
    name.copy(buffer, sizeof(buffer) - 1);
    const auto endpoint = listener.endpoint();
    ASSERT_EQ(bootstrap_register(user, buffer, xpc::ListenerEndpoint::machPort(endpoint.object())),
              BOOTSTRAP_SUCCESS);
}

// Another's service, which answers with a text of the test.
class OtherService final : public xpc::ListenerDelegate,
                           public CameraStatusService,
                           public std::enable_shared_from_this<OtherService> {
public:
    explicit OtherService(std::string answer) : answer_(std::move(answer)) {}

    bool listenerShouldAcceptNewConnection(xpc::Listener&,
                                           const std::shared_ptr<xpc::Connection>& newConnection) override
    {
        newConnection->setExportedInterface(xpc::describe<CameraStatusService>());
        newConnection->setExportedObject(xpc::exportObject<CameraStatusService>(shared_from_this()));
        newConnection->resume();
        return true;
    }
    void status(xpc::Reply<ns::Data> reply) override
    {
        const auto bytes = std::as_bytes(std::span(answer_));
        reply(ns::Data(bytes.begin(), bytes.end()));
    }

private:
    const std::string answer_;
};

class StatusServiceTest : public testing::Test {
protected:
    StatusServiceTest()
    {
        ::setenv("PAVO_BOOTSTRAP_DIR", names_.path().c_str(), 1);
        setReport(std::nullopt);
    }
    ~StatusServiceTest() override
    {
        service_.reset();
        ::unsetenv("PAVO_BOOTSTRAP_DIR");
    }

    void start()
    {
        auto service = StatusService::create("1.2.3");
        ASSERT_TRUE(service) << service.problem().text;
        service_ = service.value();
        service_->start();
    }
    static CameraStatus ask()
    {
        const auto status = askForStatus();
        EXPECT_TRUE(status) << status.problem().text;
        return status ? status.value() : CameraStatus();
    }
    static std::string problem()
    {
        const auto status = askForStatus();
        return status ? "none" : status.problem().text;
    }

    const pavo::test::TemporaryFolder names_;
    std::shared_ptr<StatusService> service_;
};

TEST_F(StatusServiceTest, TellsWhatThePlatformKnows)
{
    setReport(watchedCamera());
    start();
    const auto status = ask();
    EXPECT_EQ(status.pid, ::getpid());
    EXPECT_EQ(status.version, "1.2.3");
    EXPECT_GE(status.uptimeSeconds, 0);
    EXPECT_EQ(status.pipeWire, CameraStatus::PipeWire::daemon);
    EXPECT_EQ(status.nodeName, "pavo-camera");
    EXPECT_EQ(status.nodeLabel, "Pavo Camera");
    EXPECT_EQ(status.nodeId, 7U);
    ASSERT_TRUE(status.format);
    EXPECT_EQ(status.format->pixel, "NV12");
    EXPECT_EQ(status.format->width, 1280);
    EXPECT_EQ(status.format->height, 720);
    ASSERT_EQ(status.clients.size(), 2U);
    EXPECT_EQ(status.clients[0].process.pid, 11);
    EXPECT_EQ(status.clients[0].process.program, "firefox");
    EXPECT_GE(status.clients[0].process.connectedSeconds, 100);
    EXPECT_EQ(status.clients[0].applicationId, "org.mozilla.firefox");
    EXPECT_EQ(status.clients[1].applicationId, std::nullopt);
    EXPECT_EQ(status.frames.sent, 100U);
    EXPECT_EQ(status.frames.drawn, 80U);
    EXPECT_EQ(status.frames.replaced, 5U);
    EXPECT_EQ(status.frames.withoutBuffer, 4U);
    EXPECT_EQ(status.frames.unusable, 3U);
    EXPECT_EQ(status.frames.unwatched, 2U);
    EXPECT_DOUBLE_EQ(status.frames.rate, 29.97);
}

TEST_F(StatusServiceTest, TellsWhatClientsSee)
{
    start();
    EXPECT_EQ(ask().state, State::waiting) << "before there is a camera";
    auto report = watchedCamera();
    auto& camera = report.cameras.front();
    setReport(report);
    EXPECT_EQ(ask().state, State::placeholder);
    camera.frames.isForeign = true;
    setReport(report);
    EXPECT_EQ(ask().state, State::live);
    camera.clients.clear();
    setReport(report);
    EXPECT_EQ(ask().state, State::idle);
    report.pipeWire = cmio::PipeWireState::embedded;
    setReport(report);
    EXPECT_EQ(ask().pipeWire, CameraStatus::PipeWire::embedded);
    report.pipeWire = cmio::PipeWireState::waiting;
    setReport(report);
    EXPECT_EQ(ask().state, State::waiting);
}

TEST_F(StatusServiceTest, NamesEachFormat)
{
    start();
    auto report = watchedCamera();
    for (const auto& [format, name] :
         {std::pair(cmio::VideoFormat::yuy2, "YUY2"), std::pair(cmio::VideoFormat::nv12, "NV12")}) {
        report.cameras.front().layout->format = format;
        setReport(report);
        EXPECT_EQ(ask().format.value().pixel, name);
    }
}

TEST_F(StatusServiceTest, TheProducerIsWhoDialledLastAndNobodyWhoAsks)
{
    setReport(watchedCamera());
    start();
    EXPECT_FALSE(ask().producer);
    const auto listener = xpc::Listener::anonymousListener();
    registerListener(*listener, kVideoFrameServiceName);
    const auto delegate = std::make_shared<OtherService>("");
    listener->setDelegate(delegate);
    listener->resume();
    const auto producer = xpc::Connection::withMachServiceName(kVideoFrameServiceName);
    producer->resume();
    ASSERT_TRUE(pavo::test::waitFor([] { return ask().producer.has_value(); }));
    EXPECT_EQ(ask().producer->pid, ::getpid());
    EXPECT_EQ(ask().producer->program, "ToolsTests");
    EXPECT_EQ(ask().clients.size(), 2U);
    producer->invalidate();
    EXPECT_TRUE(pavo::test::waitFor([] { return !ask().producer.has_value(); }));
    listener->invalidate();
}

TEST_F(StatusServiceTest, AnswersWhateverClientsCallThemselves)
{
    start();
    auto report = watchedCamera();
    auto& clients = report.cameras.front().clients;
    // What JSON makes longest: bytes that are no text, and quotes.
    clients.assign(1000, {1, std::string(5000, '\xFF'), std::string(5000, '"'), Clock::now()});
    clients[0].program = std::string(63, 'x') + "\xC3\xA9";
    clients[1].program = "two\nlines";
    setReport(report);
    const auto status = ask();
    ASSERT_EQ(status.clients.size(), 100U);
    EXPECT_EQ(status.clients[0].process.program, std::string(63, 'x')) << "cut at a whole character";
    EXPECT_EQ(status.clients[1].process.program, "two?lines");
    EXPECT_EQ(status.clients[2].applicationId, std::string(64, '"'));
}

TEST_F(StatusServiceTest, ThereIsOneForAUser)
{
    start();
    const auto second = StatusService::create("1.2.3");
    ASSERT_FALSE(second);
    EXPECT_EQ(second.problem().text, "a camera is running already, as process " + std::to_string(::getpid()) +
                                         "; one user has one camera");
    EXPECT_EQ(ask().pid, ::getpid());
    service_.reset();
    start();
    EXPECT_EQ(ask().pid, ::getpid());
}

TEST_F(StatusServiceTest, SaysWhichFolderCannotBeUsed)
{
    ::setenv("PAVO_BOOTSTRAP_DIR", "/dev/null", 1);
    const auto service = StatusService::create("1.2.3");
    ASSERT_FALSE(service);
    EXPECT_THAT(service.problem().text, HasSubstr("cannot be made or used, PAVO_BOOTSTRAP_DIR is /dev/null"));
}

TEST_F(StatusServiceTest, SaysThatThereIsNoCamera)
{
    EXPECT_EQ(problem(), "no camera is running; \"pavo camera\" starts one");
}

TEST_F(StatusServiceTest, SaysThatAnAnswerMakesNoSense)
{
    for (const std::string answer : {"", "{", "[]", "{\"pid\": \"one\"}"}) {
        const auto listener = xpc::Listener::anonymousListener();
        registerListener(*listener, kStatusServiceName);
        const auto other = std::make_shared<OtherService>(answer);
        listener->setDelegate(other);
        listener->resume();
        EXPECT_THAT(problem(), StartsWith("a camera is running, but its answer cannot be read: ")) << answer;
        listener->invalidate();
    }
}

}  // namespace
}  // namespace pavo::tools
