// What capture programs ask of a camera in PipeWire, none of which PipeWire itself does.

#include "Tests/Platform/CoreMediaIO/CameraInPipeWire.h"
#include "Tests/Platform/CoreMediaIO/ClientProcess.h"
#include "Tests/Platform/CoreMediaIO/PickyClient.h"
#include "Tests/Support/Patience.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <spa/param/video/raw.h>
#include <unistd.h>

#include <algorithm>
#include <set>

namespace cmio::test {
namespace {

using nlohmann::json;
using pavo::test::kPatience;
using pavo::test::PipeWireSession;
using pavo::test::waitFor;

class CameraRules : public CameraInPipeWire {
protected:
    void SetUp() override
    {
        CameraInPipeWire::SetUp();
        if (IsSkipped()) return;
        startCamera();
    }

    // The node as another program is told of it.
    static json node()
    {
        const auto objects = json::parse(PipeWireSession::dump(), nullptr, false);
        for (const auto& object : objects) {
            const auto info = object.find("info");
            if (info != object.end() && info->contains("props") &&
                (*info)["props"].value("node.name", "") == kNode)
                return *info;
        }
        return {};
    }

    // What it offers. The server asks the camera for that, and a dump does not always wait for the answer.
    static json offered()
    {
        json entries;
        EXPECT_TRUE(waitFor(
            [&entries] {
                entries = node()["params"]["EnumFormat"];
                return !entries.empty();
            },
            kPatience));
        return entries;
    }

    bool has(const std::string& event) const
    {
        const auto events = camera_->events();
        return std::find(events.begin(), events.end(), event) != events.end();
    }

    // PipeWire links a client that asks for what the camera does not have, and finds that the two do not
    // agree. The session manager takes such a link away, or the whole client, or leaves it as it is.
    bool isRefused(const PickyClient& client) const
    {
        if (!client.isConnected() || has("disconnect " + std::to_string(::getpid()))) return true;
        const auto objects = json::parse(PipeWireSession::dump(), nullptr, false);
        return std::any_of(objects.begin(), objects.end(), [](const json& object) {
            return object.is_object() && object.value("type", "") == "PipeWire:Interface:Link" &&
                   object["info"].value("state", "") == "error";
        });
    }

    // The next one does not suffer. With its format agreed, the first may be linked to that.
    void expectRefusal(const ClientHabits& habits)
    {
        send();
        const PickyClient refused(habits);
        // Rarely a link comes and goes so fast that nobody sees it: then this is how long no frame comes.
        waitFor([this, &refused] { return isRefused(refused); }, std::chrono::seconds(5));
        EXPECT_EQ(refused.frameCount(), 0U);
        EXPECT_FALSE(refused.isStreaming());
        const PickyClient next(obsHabits());
        EXPECT_TRUE(next.waitForFrames(20)) << next.refusal();
    }
};

TEST_F(CameraRules, SaysThatItIsACameraAndWhatItIsCalled)
{
    const auto properties = node()["props"];
    EXPECT_EQ(properties["media.class"], "Video/Source");
    EXPECT_EQ(properties["media.role"], "Camera");
    EXPECT_EQ(properties["node.description"], "Pavo Camera");
    EXPECT_EQ(properties["node.name"], kNode);
}

TEST_F(CameraRules, KeepsTheNameByWhichProgramsFindItAgain)
{
    const auto before = node();
    const auto formats = offered();
    camera_.reset();
    camera_ = std::make_unique<TestCamera>();
    camera_->publish();
    ASSERT_TRUE(waitFor([&before] {
        const auto now = node();
        return now.is_object() && now["props"]["object.serial"] != before["props"]["object.serial"];
    }));
    const auto after = node();
    EXPECT_EQ(after["props"]["node.name"], before["props"]["node.name"]);
    EXPECT_EQ(after["props"]["node.description"], before["props"]["node.description"]);
    EXPECT_EQ(offered(), formats);
}

TEST_F(CameraRules, OffersOnlyPlainValues)
{
    // Where there is a choice, it is an object with a default.
    for (const auto& entry : offered()) {
        EXPECT_EQ(entry["mediaType"], "video");
        EXPECT_EQ(entry["mediaSubtype"], "raw");
        EXPECT_TRUE(entry["format"].is_string()) << entry;
        EXPECT_EQ(entry["size"], (json{{"width", 1920}, {"height", 1080}})) << entry;
        EXPECT_EQ(entry["framerate"], (json{{"num", 60}, {"denom", 1}})) << entry;
        // By names that are none of theirs, for want of a list.
        for (const char* key : {"colorRange", "colorMatrix", "transferFunction", "colorPrimaries"})
            EXPECT_TRUE(entry.contains(key) && entry[key].is_primitive()) << key << entry;
    }
}

// The first client decides on one of the formats for all those after it, so there is no good second best.
TEST_F(CameraRules, OffersOnlyWhatEveryKindOfClientTakes)
{
    using Names = std::vector<std::string>;
    const std::map<std::string, Names> taken = {
        {"libwebrtc", {"I420", "NV12", "YUY2", "UYVY", "RGB"}},
        {"OBS", {"BGRA", "RGBA", "BGRx", "RGBx", "YUY2", "NV12"}},
        {"GStreamer", {"AYUV", "RGBA", "BGRA", "RGBx", "BGRx", "I420", "NV12", "UYVY", "YUY2"}},
        {"pw-v4l2", {"YUY2", "UYVY", "I420", "NV12", "RGB", "BGRx"}}};
    Names names;
    for (const auto& entry : offered())
        names.push_back(entry["format"]);
    ASSERT_FALSE(names.empty());
    for (const auto& [client, formats] : taken) {
        EXPECT_THAT(formats, testing::IsSupersetOf(names)) << client;
        // A program with an order of its own takes the first of its formats that is offered.
        if (client != "OBS") continue;
        const auto first = std::find_if(formats.begin(), formats.end(), [&names](const auto& format) {
            return std::find(names.begin(), names.end(), format) != names.end();
        });
        ASSERT_NE(first, formats.end());
        EXPECT_EQ(*first, names.front());
    }
}

TEST_F(CameraRules, GivesFramesWithAHeaderAndWithoutPadding)
{
    send();
    for (const auto format : {SPA_VIDEO_FORMAT_YUY2, SPA_VIDEO_FORMAT_NV12}) {
        ClientHabits habits = insistingOn(format);
        habits.hasOwnStride = true;
        const PickyClient client(habits);
        ASSERT_TRUE(client.waitForFrames(5)) << format << client.refusal();
        const auto frame = client.lastFrame();
        EXPECT_EQ(frame->format, static_cast<std::uint32_t>(format));
        EXPECT_EQ(frame->width, 1920U);
        EXPECT_EQ(frame->height, 1080U);
        const bool isPlanar = format == SPA_VIDEO_FORMAT_NV12;
        EXPECT_EQ(frame->stride, isPlanar ? 1920 : 3840);
        EXPECT_EQ(frame->offset, 0U);
        EXPECT_EQ(frame->size, 1920U * 1080 * (isPlanar ? 3 : 4) / 2);
        EXPECT_GE(frame->room, frame->size);
        EXPECT_TRUE(frame->hasHeader);
        EXPECT_GT(frame->time, 0);
        expectRed(client);
    }
}

TEST_F(CameraRules, GivesEveryNumberOfBuffersThatIsAskedFor)
{
    send();
    // As browsers ask.
    {
        const PickyClient client(browserHabits());
        ASSERT_TRUE(client.waitForFrames(3)) << client.refusal();
        EXPECT_GE(client.bufferCount(), 8U);
        EXPECT_LE(client.bufferCount(), 32U);
    }
    for (const int count : {1, 2, 4, 16, 32}) {
        // The memory is kept for the next client until the session manager takes it back.
        ASSERT_TRUE(waitFor(
            [] {
                const auto idle = PipeWireSession::node(kNode);
                return idle && idle->state == "suspended";
            },
            kPatience));
        ClientHabits habits = browserHabits();
        habits.buffers = habits.minBuffers = habits.maxBuffers = count;
        const PickyClient client(habits);
        EXPECT_TRUE(client.waitForFrames(5)) << count << " buffers: " << client.refusal();
        // The server gives no more than 16, and a newer one no less than 2.
        EXPECT_THAT(client.bufferCount(), testing::AnyOf(std::min(count, 16), std::clamp(count, 2, 16)));
    }
}

TEST_F(CameraRules, GivesFramesInThreeBuffersAtLeastWhateverKilledClientsHeld)
{
    send();
    // While somebody watches, the memory stays the same.
    PickyClient client(gstreamerHabits());
    ASSERT_TRUE(client.waitForFrames(3)) << client.refusal();
    for (int round = 0; round < 4; ++round) {
        // Reads a frame, and does not end with it.
        HoldingClient killed;
        ASSERT_TRUE(killed.process().waitForFrames(1));
        killed.process().end(SIGKILL);
    }
    ASSERT_TRUE(client.waitForFrames(5));
    client.takeUsedBufferCount();
    ASSERT_TRUE(client.waitForFrames(30));
    // Of two, one would come again before a client can say that it is done with it: the frame is lost.
    EXPECT_GE(client.takeUsedBufferCount(), 3U);
}

TEST_F(CameraRules, GoesOnBesideAClientThatGivesNoFrameBack)
{
    send();
    const PickyClient client(gstreamerHabits());
    ASSERT_TRUE(client.waitForFrames(3)) << client.refusal();
    ClientHabits habits = gstreamerHabits();
    habits.givesBack = false;
    const PickyClient greedy(habits);
    // So many that it has taken all the memory more than once.
    ASSERT_TRUE(greedy.waitForFrames(3 * client.bufferCount())) << greedy.refusal();
    EXPECT_TRUE(client.waitForFrames(60));
}

TEST_F(CameraRules, TakesTheMemoryOfKilledClientsBackWhileOthersWatch)
{
    send();
    const PickyClient client(gstreamerHabits());
    ASSERT_TRUE(client.waitForFrames(3)) << client.refusal();
    for (std::size_t round = 0; round <= client.bufferCount(); ++round) {
        HoldingClient killed;
        ASSERT_TRUE(killed.process().waitForFrames(1)) << round;
        killed.process().end(SIGKILL);
    }
    EXPECT_TRUE(client.waitForFrames(60));
}

TEST_F(CameraRules, TellsEveryKindOfClientItsColours)
{
    send();
    for (const ClientHabits& kind : {browserHabits(), obsHabits(), gstreamerHabits(), v4l2Habits()}) {
        const PickyClient client(kind);
        ASSERT_TRUE(client.waitForFrames(1)) << kind.name << client.refusal();
        // Range, matrix, transfer function and primaries, as webcams have them.
        const Colorimetry expected = {SPA_VIDEO_COLOR_RANGE_16_235, SPA_VIDEO_COLOR_MATRIX_BT601,
                                      SPA_VIDEO_TRANSFER_SRGB, SPA_VIDEO_COLOR_PRIMARIES_BT709};
        EXPECT_EQ(client.lastFrame()->colorimetry, expected) << kind.name;
        expectRed(client);
    }
}

TEST_F(CameraRules, ServesAClientThatInsistsOnItsColours)
{
    send();
    ClientHabits habits = browserHabits();
    habits.colorMatrix = SPA_VIDEO_COLOR_MATRIX_BT601;
    const PickyClient client(habits);
    EXPECT_TRUE(client.waitForFrames(3)) << client.refusal();
}

// As webcams do.
TEST_F(CameraRules, RefusesOtherColours)
{
    ClientHabits habits = browserHabits();
    habits.colorMatrix = SPA_VIDEO_COLOR_MATRIX_BT709;
    expectRefusal(habits);
}

TEST_F(CameraRules, RefusesAnotherSize)
{
    ClientHabits habits = browserHabits();
    habits.width = 1280;
    habits.height = 720;
    expectRefusal(habits);
}

TEST_F(CameraRules, RefusesAFormatThatItDoesNotHave)
{
    expectRefusal(insistingOn(SPA_VIDEO_FORMAT_BGRx));
}

TEST_F(CameraRules, RefusesAFormatThatOnlySomeKindsOfClientsTake)
{
    expectRefusal(insistingOn(SPA_VIDEO_FORMAT_UYVY));
}

TEST_F(CameraRules, RefusesAnotherRate)
{
    ClientHabits habits = browserHabits();
    habits.rate = 25;
    expectRefusal(habits);
}

// PipeWire asks a client that comes later nothing: it is told what the others have, and can only leave.
TEST_F(CameraRules, TellsALaterClientWhatThereIsWhateverItAskedFor)
{
    send();
    const PickyClient watching(browserHabits());
    ASSERT_TRUE(watching.waitForFrames(3));
    ClientHabits otherSize = browserHabits();
    otherSize.width = 1280;
    otherSize.height = 720;
    ClientHabits otherRate = browserHabits();
    otherRate.rate = 25;
    for (const ClientHabits& habits :
         {otherSize, otherRate, insistingOn(SPA_VIDEO_FORMAT_UYVY), insistingOn(SPA_VIDEO_FORMAT_BGRx)}) {
        const PickyClient later(habits);
        ASSERT_TRUE(later.waitForFrames(3)) << later.refusal();
        const auto frame = later.lastFrame();
        EXPECT_EQ(frame->format, static_cast<std::uint32_t>(SPA_VIDEO_FORMAT_YUY2));
        EXPECT_EQ(frame->width, 1920U);
        EXPECT_EQ(frame->height, 1080U);
        EXPECT_TRUE(watching.waitForFrames(3));
    }
    EXPECT_TRUE(watching.waitForFrames(10));
    EXPECT_EQ(watching.refusal(), "");
}

TEST_F(CameraRules, GoesOnForAClientThatPaused)
{
    send();
    PickyClient client(browserHabits());
    const PickyClient other(obsHabits());
    ASSERT_TRUE(client.waitForFrames(3) && other.waitForFrames(3));
    for (int round = 0; round < 3; ++round) {
        client.setActive(false);
        ASSERT_TRUE(waitFor([&client] { return !client.isStreaming(); }, kPatience));
        const std::size_t seen = client.frameCount();
        ASSERT_TRUE(other.waitForFrames(20));
        EXPECT_EQ(client.frameCount(), seen);
        client.setActive(true);
        ASSERT_TRUE(client.waitForFrames(10));
        expectRed(client);
    }
}

TEST_F(CameraRules, GoesOnAfterItsOnlyClientPaused)
{
    send();
    PickyClient client(browserHabits());
    ASSERT_TRUE(client.waitForFrames(3));
    for (int round = 0; round < 3; ++round) {
        client.setActive(false);
        ASSERT_TRUE(waitFor([&client] { return !client.isStreaming(); }, kPatience));
        client.setActive(true);
        ASSERT_TRUE(client.waitForFrames(10));
        expectRed(client);
    }
}

TEST_F(CameraRules, GoesOnForTheOthersWhenAClientIsKilled)
{
    send();
    const PickyClient watching(browserHabits());
    ASSERT_TRUE(watching.waitForFrames(3));
    for (int round = 0; round < 3; ++round) {
        ClientProcess killed;
        ASSERT_TRUE(killed.waitForFrames(3));
        killed.end(SIGKILL);
        EXPECT_TRUE(watching.waitForFrames(10));
    }
    const PickyClient late(obsHabits());
    EXPECT_TRUE(late.waitForFrames(3));
}

TEST_F(CameraRules, ServesTwoStreamsOfAProcessEachInItsOwnWay)
{
    send();
    const PickyClient first(browserHabits());
    const PickyClient second(gstreamerHabits());
    EXPECT_TRUE(first.waitForFrames(10) && second.waitForFrames(10));
    expectRed(first);
    expectRed(second);
    EXPECT_TRUE(waitForProcesses({::getpid()}));
}

}  // namespace
}  // namespace cmio::test
