#include "Tests/Platform/CoreMediaIO/CameraInPipeWire.h"
#include "Tests/Platform/CoreMediaIO/ClientProcess.h"
#include "Tests/Platform/CoreMediaIO/Pictures.h"
#include "Tests/Platform/CoreMediaIO/TestCamera.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/PipeWireSession.h"
#include "Tests/Support/Wait.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cmio {
namespace {

using pavo::test::ChildProcess;
using pavo::test::PipeWireSession;
using pavo::test::waitFor;
using test::CameraInPipeWire;
using test::ClientProcess;
using test::HoldingClient;
using test::kBlue;
using test::kGreen;
using test::kNode;
using test::kRed;
using test::makePicture;
using test::makeTwoColors;
using test::Rgb;
using test::TestCamera;
using Processes = std::vector<std::int32_t>;

constexpr OSType kUyvy = kCVPixelFormatType_422YpCbCr8;
// The first time it runs for a user it looks at all its plugins.
constexpr std::chrono::seconds kGStreamerDeadline(30);

bool isNear(const int (&seen)[3], int a, int b, int c, int tolerance)
{
    return std::abs(seen[0] - a) <= tolerance && std::abs(seen[1] - b) <= tolerance &&
           std::abs(seen[2] - c) <= tolerance;
}

bool showsYuv(const int (&seen)[3], Rgb color)
{
    const auto yuv = test::toVideoRange(color);
    return isNear(seen, yuv.y, yuv.cb, yuv.cr, 2);
}

std::string line(const char* event, std::int32_t process)
{
    return event + (" " + std::to_string(process));
}

TEST_F(CameraInPipeWire, IsVisibleBeforeAnybodyWatches)
{
    startCamera();
    const auto node = PipeWireSession::node(kNode);
    ASSERT_TRUE(node);
    auto properties = node->properties;
    EXPECT_EQ(properties["media.class"], "Video/Source");
    EXPECT_EQ(properties["media.role"], "Camera");
    EXPECT_EQ(properties["node.description"], "Pavo Camera");
    EXPECT_EQ(properties["node.nick"], "Pavo Camera");
    EXPECT_EQ(properties["node.driver"], "true");
    EXPECT_EQ(properties["session.suspend-timeout-seconds"], "1");
    EXPECT_EQ(properties["device.product.name"], "Test Model");
    EXPECT_EQ(properties["device.vendor.name"], "Test Maker");
    EXPECT_EQ(properties.count("node.autoconnect"), 0U);
    EXPECT_NE(node->state, "running");
    EXPECT_TRUE(camera_->events().empty());
}

TEST_F(CameraInPipeWire, IsGoneWhenTheProviderIs)
{
    startCamera();
    camera_.reset();
    EXPECT_TRUE(waitFor([] { return !PipeWireSession::node(kNode); }));
}

TEST_F(CameraInPipeWire, GivesEachOfferedFormatInRightColours)
{
    startCamera();
    send();
    for (const std::string format : {"YUY2", "NV12"}) {
        const ClientProcess client({"--format", format});
        ASSERT_TRUE(client.waitForFrames(5)) << format;
        const auto frame = client.frames().back();
        EXPECT_EQ(frame.format, format);
        EXPECT_EQ(frame.size, "1920x1080");
        EXPECT_EQ(frame.stride, format == "NV12" ? 1920U : 3840U);
        EXPECT_TRUE(showsYuv(frame.upperLeft, kRed)) << format;
        EXPECT_TRUE(showsYuv(frame.lowerRight, kGreen)) << format;
    }
}

TEST_F(CameraInPipeWire, OffersYuy2First)
{
    startCamera();
    send();
    const ClientProcess client;
    ASSERT_TRUE(client.waitForFrames(1));
    EXPECT_EQ(client.frames().front().format, "YUY2");
}

TEST_F(CameraInPipeWire, TellsAClientWhichFormatsItHasBeforeItIsLinked)
{
    startCamera();
    const ClientProcess client({"--format", "UYVY"});
    EXPECT_TRUE(waitFor([&client] { return client.output().ends_with('\n'); }, std::chrono::seconds(60)));
    EXPECT_EQ(client.output(), "problem the camera does not offer UYVY, only YUY2 and NV12\n");
}

TEST_F(CameraInPipeWire, ConvertsWhatIsSentInOtherFormatsAndSizes)
{
    startCamera();
    const ClientProcess client;
    camera_->startSending(makePicture(kUyvy, 640, 360, kBlue));
    EXPECT_TRUE(waitFor([&client] {
        const auto frames = client.frames();
        return !frames.empty() && showsYuv(frames.back().upperLeft, kBlue);
    })) << client.output();
    ASSERT_FALSE(HasFailure());
    camera_->startSending(makePicture(kCVPixelFormatType_32BGRA, 1080, 1080, kRed));
    EXPECT_TRUE(waitFor([&client] {
        const auto frames = client.frames();
        return showsYuv(frames.back().upperLeft, {0, 0, 0}) && showsYuv(frames.back().lowerRight, {0, 0, 0});
    }));
    camera_->startSending(makePicture(kCVPixelFormatType_420YpCbCr8BiPlanarFullRange, 1280, 720, kGreen));
    EXPECT_TRUE(waitFor([&client] { return showsYuv(client.frames().back().upperLeft, kGreen); }));
}

TEST_F(CameraInPipeWire, TellsTimeAndSequenceOfEachFrame)
{
    startCamera();
    const ClientProcess client;
    ASSERT_TRUE(waitForProcesses({client.pid()}));
    const auto picture = makeTwoColors();
    std::uint64_t time = 1'000'000;
    ASSERT_TRUE(waitFor([&] {
        camera_->sendOnce(picture.get(), time);
        time += 1'000'000;
        return client.frames().size() >= 10;
    }));
    const auto frames = client.frames();
    for (std::size_t index = 1; index < frames.size(); ++index) {
        EXPECT_GT(frames[index].sequence, frames[index - 1].sequence);
        EXPECT_GT(frames[index].time, frames[index - 1].time);
        EXPECT_EQ(frames[index].time % 1'000'000, 0);
    }
}

TEST_F(CameraInPipeWire, StartsForAClientAndStopsWhenItEnds)
{
    startCamera();
    send();
    ClientProcess client;
    const auto pid = client.pid();
    ASSERT_TRUE(client.waitForFrames(3));
    EXPECT_EQ(camera_->streamingProcesses(), Processes{pid});
    client.end(SIGTERM);
    ASSERT_TRUE(waitForEvents(7));
    const std::vector<std::string> expected = {
        line("connect", pid),   line("authorize", pid), "start", line("clients", pid), "stop", "clients",
        line("disconnect", pid)};
    EXPECT_EQ(camera_->events(), expected);
}

TEST_F(CameraInPipeWire, SeesThatAClientWasKilled)
{
    startCamera();
    ClientProcess client;
    ASSERT_TRUE(waitForProcesses({client.pid()}));
    client.end(SIGKILL);
    EXPECT_TRUE(waitForProcesses({}));
}

TEST_F(CameraInPipeWire, CountsTwoStreamsOfAProcessAsOneClient)
{
    startCamera();
    send();
    ClientProcess client({"--clients", "2"});
    const auto pid = client.pid();
    // More frames than were sent: both streams get them.
    ASSERT_TRUE(waitFor([&client] {
        const auto frames = client.frames();
        return !frames.empty() && std::count_if(frames.begin(), frames.end(), [&](const auto& frame) {
                                      return frame.sequence == frames.back().sequence;
                                  }) == 2;
    }));
    client.end(SIGTERM);
    ASSERT_TRUE(waitForEvents(7));
    EXPECT_EQ(camera_->events().size(), 7U);
    EXPECT_EQ(camera_->events()[3], line("clients", pid));
}

TEST_F(CameraInPipeWire, StartsOnceForSeveralProcesses)
{
    startCamera();
    send();
    ClientProcess first;
    ASSERT_TRUE(first.waitForFrames(1));
    const auto firstPid = first.pid();
    ClientProcess second;
    ASSERT_TRUE(second.waitForFrames(5));
    EXPECT_TRUE(first.waitForMoreFrames(5));
    EXPECT_EQ(camera_->streamingProcesses(), (Processes{firstPid, second.pid()}));
    first.end(SIGKILL);
    ASSERT_TRUE(waitForProcesses({second.pid()}));
    EXPECT_TRUE(second.waitForMoreFrames(5));
    second.end(SIGTERM);
    ASSERT_TRUE(waitForProcesses({}));
    const auto events = camera_->events();
    EXPECT_EQ(std::count(events.begin(), events.end(), "start"), 1);
    EXPECT_EQ(std::count(events.begin(), events.end(), "stop"), 1);
}

TEST_F(CameraInPipeWire, GivesARefusedClientNoFrames)
{
    startCamera();
    send();
    ClientProcess welcome;
    ASSERT_TRUE(welcome.waitForFrames(1));
    camera_->refuseEverybody();
    ClientProcess refused;
    const auto pid = refused.pid();
    // Its link is cut, which ends its connection.
    const auto disconnected = line("disconnect", pid);
    ASSERT_TRUE(waitFor([&] {
        const auto events = camera_->events();
        return std::find(events.begin(), events.end(), disconnected) != events.end();
    }));
    const std::size_t seen = refused.frames().size();
    ASSERT_TRUE(welcome.waitForMoreFrames(20));
    EXPECT_EQ(refused.frames().size(), seen);
    EXPECT_EQ(camera_->streamingProcesses(), Processes{welcome.pid()});
}

// How often the threads of that name have gone to sleep, which is how often they were woken.
std::uint64_t wakeUps(const std::vector<std::string>& threadNames)
{
    std::uint64_t count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm") >> std::ws, name);
        if (std::find(threadNames.begin(), threadNames.end(), name) == threadNames.end()) continue;
        std::ifstream status(task.path() / "status");
        for (std::string text; std::getline(status, text);)
            if (text.starts_with("voluntary_ctxt_switches:"))
                count += std::stoull(text.substr(text.find('\t')));
    }
    return count;
}

TEST_F(CameraInPipeWire, SleepsWhileNobodyWatches)
{
    startCamera();
    {
        ClientProcess client;
        send();
        ASSERT_TRUE(client.waitForFrames(3));
    }
    ASSERT_TRUE(waitForProcesses({}));
    const std::vector<std::string> threads = {"pavo-pipewire", "data-loop"};
    EXPECT_GT(wakeUps(threads), 0U);
    // Samples keep coming, and a whole second passes without a wake-up once the last client's end is dealt
    // with.
    std::uint64_t last = wakeUps(threads);
    auto since = std::chrono::steady_clock::now();
    EXPECT_TRUE(waitFor([&] {
        const std::uint64_t now = wakeUps(threads);
        if (std::exchange(last, now) != now) since = std::chrono::steady_clock::now();
        return std::chrono::steady_clock::now() - since > std::chrono::seconds(1);
    }));
}

TEST_F(CameraInPipeWire, KeepsASampleOnlyUntilItIsDrawn)
{
    startCamera();
    const ClientProcess client;
    ASSERT_TRUE(waitForProcesses({client.pid()}));
    const auto picture = makeTwoColors();
    std::vector<cf::Ref<CMSampleBufferRef>> samples;
    ASSERT_TRUE(waitFor([&] {
        samples.push_back(camera_->sendOnce(picture.get(), 0));
        return client.frames().size() >= 3;
    }));
    EXPECT_TRUE(waitFor([&samples] {
        return std::all_of(samples.begin(), samples.end(),
                           [](const auto& sample) { return CFGetRetainCount(sample.get()) == 1; });
    }));
}

TEST_F(CameraInPipeWire, DrawsAnUnchangedSurfaceOfThisProcessOnlyOnce)
{
    startCamera();
    const ClientProcess client;
    const auto picture = makeTwoColors(kUyvy, true);
    camera_->startSending(picture);
    // Every buffer of the node has been used by then.
    ASSERT_TRUE(client.waitForFrames(40));

    // Without a lock nobody is told that it changes; so what is seen is what was drawn before.
    auto* bytes = static_cast<std::uint8_t*>(CVPixelBufferGetBaseAddress(picture.get()));
    std::fill_n(bytes, CVPixelBufferGetDataSize(picture.get()), std::uint8_t{0x80});
    const std::size_t before = client.frames().size();
    ASSERT_TRUE(client.waitForFrames(before + 30));
    const auto frames = client.frames();
    EXPECT_TRUE(std::all_of(frames.begin(), frames.end(),
                            [](const auto& frame) { return showsYuv(frame.upperLeft, kRed); }));

    CVPixelBufferLockBaseAddress(picture.get(), 0);
    CVPixelBufferUnlockBaseAddress(picture.get(), 0);
    EXPECT_TRUE(waitFor([&client] { return isNear(client.frames().back().upperLeft, 128, 128, 128, 0); }));
}

TEST_F(CameraInPipeWire, LetsASlowClientHarmNobody)
{
    startCamera();
    send();
    HoldingClient slow;
    ASSERT_TRUE(slow.process().waitForFrames(1));
    ClientProcess fast;
    ASSERT_TRUE(fast.waitForFrames(1));
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(fast.waitForMoreFrames(6));
        ASSERT_TRUE(slow.letGo());
    }
    const auto frames = fast.frames();
    // Out of 120 frames that were sent while it watched, a tenth may be missing on a busy machine; a client
    // in the slow one's shadow would see every sixth.
    const auto sent = frames.back().sequence - frames.front().sequence + 1;
    EXPECT_GE(static_cast<double>(frames.size()), 0.9 * static_cast<double>(sent));
    const auto slowFrames = slow.process().frames();
    EXPECT_TRUE(std::all_of(slowFrames.begin(), slowFrames.end(),
                            [](const auto& frame) { return showsYuv(frame.upperLeft, kRed); }));
}

TEST_F(CameraInPipeWire, GivesEachFrameAtOnceWhileAClientIsStopped)
{
    startCamera();
    send();
    const ClientProcess stopped;
    ASSERT_TRUE(stopped.waitForFrames(1));
    const ClientProcess other;
    ASSERT_TRUE(other.waitForFrames(1));
    stopped.signal(SIGSTOP);
    ASSERT_TRUE(other.waitForMoreFrames(30));
    camera_->stopSending();
    const auto picture = makeTwoColors();
    for (std::int64_t time = 1; time <= 20; ++time) {
        // None after it, which would push it on.
        camera_->sendOnce(picture.get(), static_cast<std::uint64_t>(time));
        ASSERT_TRUE(waitFor([&] { return other.frames().back().time == time; })) << time;
    }
    stopped.signal(SIGCONT);
    send();
    EXPECT_TRUE(stopped.waitForMoreFrames(30));
    EXPECT_TRUE(other.waitForMoreFrames(30));
}

TEST_F(CameraInPipeWire, GoesOnAfterAClientThatWantsAnotherFormat)
{
    if (!pavo::test::isOnPath("gst-launch-1.0")) GTEST_SKIP() << "gst-launch-1.0 is not installed";
    startCamera();
    send();
    const ClientProcess client;
    ASSERT_TRUE(client.waitForFrames(1));
    ChildProcess other({"gst-launch-1.0", "pipewiresrc", "target-object=pavo-camera", "num-buffers=1", "!",
                        "video/x-raw,format=RGB16,width=320,height=240", "!", "fakesink"});
    // Older GStreamers give up; newer ones stay linked, show nothing, and give no frame back.
    const auto connected = line("connect", other.pid());
    EXPECT_TRUE(waitFor(
        [&] {
            const auto events = camera_->events();
            return !other.isRunning() || std::find(events.begin(), events.end(), connected) != events.end();
        },
        kGStreamerDeadline));
    EXPECT_TRUE(client.waitForMoreFrames(60));
    EXPECT_NE(other.waitForExit(std::chrono::milliseconds(0)), 0);
}

// Runs GStreamer for `count` frames and gives back what it wrote.
std::string receiveWithGStreamer(const std::string& folder, int count,
                                 const std::function<void(pid_t)>& whileRunning)
{
    const std::string path = folder + "/frames.raw";
    ChildProcess gstreamer({"gst-launch-1.0", "pipewiresrc", "target-object=pavo-camera",
                            "num-buffers=" + std::to_string(count), "!", "video/x-raw,format=YUY2", "!",
                            "filesink", "location=" + path},
                           folder + "/gst.log");
    whileRunning(gstreamer.pid());
    const auto status = gstreamer.waitForExit(kGStreamerDeadline);
    EXPECT_EQ(status, std::optional(0)) << pavo::test::readFile(folder + "/gst.log");
    return pavo::test::readFile(path);
}

void expectRedYuy2(const std::string& bytes, std::size_t count)
{
    ASSERT_EQ(bytes.size(), count * 1920 * 1080 * 2);
    const auto red = test::toVideoRange(kRed);
    for (std::size_t index = 0; index < count; ++index) {
        const auto* pixel = reinterpret_cast<const std::uint8_t*>(bytes.data()) + index * 1920 * 1080 * 2;
        EXPECT_NEAR(pixel[0], red.y, 2);
        EXPECT_NEAR(pixel[1], red.cb, 2);
        EXPECT_NEAR(pixel[3], red.cr, 2);
    }
}

TEST_F(CameraInPipeWire, ServesGStreamer)
{
    if (!pavo::test::isOnPath("gst-launch-1.0")) GTEST_SKIP() << "gst-launch-1.0 is not installed";
    startCamera();
    send();
    const auto bytes = receiveWithGStreamer(session_->folder(), 20, [this](pid_t pid) {
        EXPECT_TRUE(waitForProcesses({pid}, kGStreamerDeadline));
    });
    expectRedYuy2(bytes, 20);
    EXPECT_TRUE(waitForProcesses({}));
}

TEST_F(CameraInPipeWire, ComesBackWithADaemonThatWasKilled)
{
    startCamera();
    send();
    {
        ClientProcess client;
        ASSERT_TRUE(client.waitForFrames(3));
        session_->killDaemon();
        ASSERT_TRUE(waitForProcesses({}));
        const auto events = camera_->events();
        EXPECT_EQ(std::count(events.begin(), events.end(), "stop"), 1);
    }
    ASSERT_TRUE(session_->startDaemon());
    ASSERT_TRUE(waitFor([] { return PipeWireSession::node(kNode).has_value(); }));
    const ClientProcess client;
    EXPECT_TRUE(client.waitForFrames(10));
    EXPECT_EQ(camera_->streamingProcesses(), Processes{client.pid()});
}

TEST_F(CameraInPipeWire, WaitsForADaemonThatComesLater)
{
    startSession(PipeWireSession::Daemon::absent);
    ::setenv("PAVO_PIPEWIRE", "daemon", 1);
    descriptorsAtPublish_ = pavo::test::openDescriptorCount();
    camera_ = std::make_unique<TestCamera>();
    camera_->publish();
    ASSERT_TRUE(session_->startDaemon());
    EXPECT_TRUE(waitFor([] { return PipeWireSession::node(kNode).has_value(); }));
    camera_.reset();
}

TEST_F(CameraInPipeWire, IsItsOwnServerWhereThereIsNoDaemon)
{
    startSession(PipeWireSession::Daemon::absent);
    publish("pavo-0");
    send();
    ClientProcess first({"--remote", "pavo-0"});
    ASSERT_TRUE(first.waitForFrames(5));
    EXPECT_TRUE(showsYuv(first.frames().back().lowerRight, kGreen));
    ClientProcess second({"--remote", "pavo-0", "--format", "YUY2"});
    ASSERT_TRUE(second.waitForFrames(5));
    ASSERT_TRUE(waitForProcesses({first.pid(), second.pid()}));
    first.end(SIGKILL);
    ASSERT_TRUE(waitForProcesses({second.pid()}));
    EXPECT_TRUE(second.waitForMoreFrames(5));
}

TEST_F(CameraInPipeWire, ServesGStreamerWithoutADaemon)
{
    if (!pavo::test::isOnPath("gst-launch-1.0")) GTEST_SKIP() << "gst-launch-1.0 is not installed";
    startSession(PipeWireSession::Daemon::absent);
    ::setenv("PIPEWIRE_REMOTE", "pavo-0", 1);
    publish();
    send();
    const auto bytes = receiveWithGStreamer(session_->folder(), 20, [this](pid_t pid) {
        EXPECT_TRUE(waitForProcesses({pid}, kGStreamerDeadline));
    });
    expectRedYuy2(bytes, 20);
}

TEST_F(CameraInPipeWire, RefusesAClientOfItsOwnServerToo)
{
    startSession(PipeWireSession::Daemon::absent);
    publish("pavo-0");
    send();
    camera_->refuseEverybody();
    const ClientProcess refused({"--remote", "pavo-0"});
    const auto disconnected = line("disconnect", refused.pid());
    ASSERT_TRUE(waitFor([&] {
        const auto events = camera_->events();
        return std::find(events.begin(), events.end(), disconnected) != events.end();
    }));
    EXPECT_TRUE(refused.frames().empty());
}

TEST_F(CameraInPipeWire, LivesWithoutAnyPipeWire)
{
    startSession(PipeWireSession::Daemon::absent);
    // No folder for a socket: neither a daemon's nor our own.
    ::setenv("XDG_RUNTIME_DIR", (session_->folder() + "/none").c_str(), 1);
    descriptorsAtPublish_ = pavo::test::openDescriptorCount();
    camera_ = std::make_unique<TestCamera>();
    camera_->publish();
    const auto picture = makeTwoColors();
    camera_->sendOnce(picture.get(), 1);
    // It comes when the folder does.
    std::filesystem::create_directory(session_->folder() + "/none");
    EXPECT_TRUE(waitFor([] { return PipeWireSession::node(kNode, "pavo-0").has_value(); }));
}

}  // namespace
}  // namespace cmio
