// Many clients at once, and clients of different kinds: whoever came before, each gets pictures.

#include "Tests/Platform/CoreMediaIO/CameraInPipeWire.h"
#include "Tests/Platform/CoreMediaIO/ClientProcess.h"
#include "Tests/Platform/CoreMediaIO/PickyClient.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Patience.h"

#include <spa/param/video/raw.h>

#include <deque>

namespace cmio::test {
namespace {

using pavo::test::ChildProcess;
using pavo::test::kPatience;
using pavo::test::PipeWireSession;
using pavo::test::waitFor;

class ClientMix : public CameraInPipeWire {
protected:
    void SetUp() override
    {
        CameraInPipeWire::SetUp();
        if (IsSkipped()) return;
        startCamera();
        send();
    }

    static std::string namesOf(const std::vector<ClientHabits>& kinds)
    {
        std::string names;
        for (const ClientHabits& kind : kinds)
            names += kind.name + " ";
        return names;
    }
};

TEST_F(ClientMix, ServesEveryKindOfClientInEveryOrder)
{
    const auto byName = [](const ClientHabits& a, const ClientHabits& b) { return a.name < b.name; };
    std::vector<ClientHabits> kinds = {browserHabits(), gstreamerHabits(), obsHabits(), v4l2Habits()};
    std::sort(kinds.begin(), kinds.end(), byName);
    do {
        std::deque<PickyClient> clients;
        for (const ClientHabits& kind : kinds) {
            clients.emplace_back(kind);
            ASSERT_TRUE(clients.back().waitForFrames(2))
                << kind.name << " of " << namesOf(kinds) << ": " << clients.back().refusal();
        }
        for (const PickyClient& client : clients) {
            EXPECT_TRUE(client.waitForFrames(2)) << namesOf(kinds);
            EXPECT_EQ(client.lastFrame()->format, static_cast<std::uint32_t>(SPA_VIDEO_FORMAT_YUY2));
        }
    } while (std::next_permutation(kinds.begin(), kinds.end(), byName));
}

TEST_F(ClientMix, ServesGStreamerBesideEveryOtherKindWhicheverCameFirst)
{
    if (!pavo::test::isOnPath("gst-launch-1.0")) GTEST_SKIP() << "gst-launch-1.0 is not installed";
    const auto startGStreamer = [this](const std::string& log) {
        return ChildProcess({"gst-launch-1.0", "pipewiresrc", "target-object=pavo-camera", "num-buffers=40",
                             "!", "videoconvert", "!", "video/x-raw,format=I420", "!", "fakesink"},
                            session_->folder() + "/" + log);
    };
    for (const ClientHabits& kind : {browserHabits(), obsHabits()}) {
        {
            const PickyClient first(kind);
            ASSERT_TRUE(first.waitForFrames(3));
            ChildProcess gstreamer = startGStreamer("second.log");
            EXPECT_EQ(gstreamer.waitForExit(kPatience), std::optional(0))
                << kind.name << pavo::test::readFile(session_->folder() + "/second.log");
            EXPECT_TRUE(first.waitForFrames(3));
        }
        ASSERT_TRUE(waitForProcesses({}, kPatience));
        ChildProcess gstreamer = startGStreamer("first.log");
        ASSERT_TRUE(waitForProcesses({gstreamer.pid()}, kPatience));
        const PickyClient second(kind);
        EXPECT_TRUE(second.waitForFrames(3)) << kind.name;
        EXPECT_EQ(gstreamer.waitForExit(kPatience), std::optional(0)) << kind.name;
        EXPECT_TRUE(second.waitForFrames(3)) << kind.name;
    }
}

// A port has one format for all its clients, which the first one agrees on; the others are told.
TEST_F(ClientMix, ServesEveryKindOfClientAfterOneThatInsistsOnAFormat)
{
    for (const auto format : {SPA_VIDEO_FORMAT_YUY2, SPA_VIDEO_FORMAT_NV12}) {
        ASSERT_TRUE(waitForProcesses({}, kPatience));
        const PickyClient insisting(insistingOn(format));
        ASSERT_TRUE(insisting.waitForFrames(3)) << insisting.refusal();
        std::deque<PickyClient> clients;
        for (const ClientHabits& kind : {browserHabits(), obsHabits(), gstreamerHabits(), v4l2Habits()}) {
            clients.emplace_back(kind);
            ASSERT_TRUE(clients.back().waitForFrames(3)) << kind.name << clients.back().refusal();
            EXPECT_EQ(clients.back().lastFrame()->format, static_cast<std::uint32_t>(format)) << kind.name;
            expectRed(clients.back());
        }
        EXPECT_TRUE(insisting.waitForFrames(3));
        EXPECT_EQ(insisting.lastFrame()->format, static_cast<std::uint32_t>(format));
        expectRed(insisting);
    }
}

// What it decides ends with it, and does not concern those that were there before it.
TEST_F(ClientMix, LetsAClientThatInsistsDecideOnlyForThoseAfterIt)
{
    {
        const PickyClient obs(obsHabits());
        ASSERT_TRUE(obs.waitForFrames(3));
        const PickyClient insisting(insistingOn(SPA_VIDEO_FORMAT_NV12));
        ASSERT_TRUE(insisting.waitForFrames(3)) << insisting.refusal();
        EXPECT_EQ(insisting.lastFrame()->format, static_cast<std::uint32_t>(SPA_VIDEO_FORMAT_YUY2));
        EXPECT_TRUE(obs.waitForFrames(10));
        EXPECT_EQ(obs.lastFrame()->format, static_cast<std::uint32_t>(SPA_VIDEO_FORMAT_YUY2));
    }
    ASSERT_TRUE(waitForProcesses({}, kPatience));
    {
        const PickyClient insisting(insistingOn(SPA_VIDEO_FORMAT_NV12));
        ASSERT_TRUE(insisting.waitForFrames(3)) << insisting.refusal();
        EXPECT_EQ(insisting.lastFrame()->format, static_cast<std::uint32_t>(SPA_VIDEO_FORMAT_NV12));
    }
    ASSERT_TRUE(waitForProcesses({}, kPatience));
    const PickyClient obs(obsHabits());
    ASSERT_TRUE(obs.waitForFrames(3)) << obs.refusal();
    EXPECT_EQ(obs.lastFrame()->format, static_cast<std::uint32_t>(SPA_VIDEO_FORMAT_YUY2));
}

TEST_F(ClientMix, ServesThirtyTwoClientsAtOnce)
{
    // Half of them in processes of their own.
    std::deque<PickyClient> here;
    std::deque<ClientProcess> elsewhere;
    const std::vector<ClientHabits> kinds = {browserHabits(), obsHabits(), gstreamerHabits(), v4l2Habits()};
    for (std::size_t index = 0; index < 16; ++index) {
        here.emplace_back(kinds[index % kinds.size()]);
        elsewhere.emplace_back();
    }
    for (const PickyClient& client : here)
        EXPECT_TRUE(client.waitForFrames(5, 2 * kPatience)) << client.refusal();
    for (const ClientProcess& client : elsewhere)
        EXPECT_TRUE(waitFor([&client] { return client.frames().size() >= 5; }, 2 * kPatience))
            << client.output();
    EXPECT_TRUE(waitFor([this] { return camera_->streamingProcesses().size() == 17; }, kPatience));
    // All of them at the same time, still.
    for (const PickyClient& client : here)
        EXPECT_TRUE(client.waitForFrames(5, 2 * kPatience));
}

}  // namespace
}  // namespace cmio::test
