// What the commands do and say while a camera runs.

#include "Tests/Support/Wait.h"
#include "Tests/Tools/CommandRun.h"
#include "Tools/PngFile.h"

#include <gmock/gmock.h>

#include <signal.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace pavo::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::SizeIs;
using Words = std::vector<std::string>;

constexpr std::chrono::seconds kDeadline(60);

std::vector<std::string> namesOf(const std::vector<json>& events)
{
    std::vector<std::string> names;
    for (const auto& event : events)
        names.push_back(event.value("event", ""));
    return names;
}

using Colour = std::array<int, 3>;

bool isNear(const Colour& seen, const Colour& expected)
{
    constexpr int kTolerance = 4;
    return std::ranges::equal(seen, expected, [](int a, int b) { return std::abs(a - b) <= kTolerance; });
}

// The last event of that name.
json find(const std::vector<json>& events, const std::string& name)
{
    const auto found = std::find_if(events.rbegin(), events.rend(),
                                    [&name](const json& event) { return event.value("event", "") == name; });
    return found == events.rend() ? json() : *found;
}

class CommandOutput : public CommandTest {
protected:
    void SetUp() override
    {
        camera_ = start("camera", {"camera", "--json"});
        ASSERT_TRUE(waitForText("camera.out", "\"started\"")) << readFile(path("camera.err"));
    }
    bool waitForText(const std::string& file, const std::string& text) const
    {
        return waitFor([&] { return readFile(path(file)).find(text) != std::string::npos; }, kDeadline);
    }
    CommandResult view(Words options) const
    {
        options.insert(options.begin(), {"view", "--remote", "pavo-0", "--wait", "60"});
        return run(options);
    }

    // What a client sees there now.
    Colour colourInTheMiddle() const
    {
        const auto seen = view({"--snapshot", path("seen.png"), "--after", "0.3"});
        EXPECT_EQ(seen.exitCode, 0) << seen.err;
        auto picture = tools::readPng(path("seen.png"));
        if (!picture) return {};
        const auto [packing, width, height] = picture.value().format();
        const auto* pixel = picture.value().view().row(0, height / 2) + std::size_t{width} / 2 * 4;
        return {pixel[2], pixel[1], pixel[0]};
    }

    ChildProcess camera_;
};

TEST_F(CommandOutput, CameraSaysWhenItIsUpAndEndsWithASignal)
{
    const auto pid = camera_.pid();
    camera_.signal(SIGTERM);
    const auto result = resultOf("camera", camera_);
    EXPECT_EQ(result.exitCode, 0);
    ASSERT_THAT(result.events(), SizeIs(1));
    EXPECT_EQ(result.events()[0], (json{{"event", "started"}, {"pid", pid}}));
}

TEST_F(CommandOutput, CameraSaysThatItIsUpOnceClientsFindItsOwnPipeWire)
{
    EXPECT_TRUE(std::filesystem::exists(path("pavo-0")));
    camera_.end(SIGTERM);
    ASSERT_TRUE(std::filesystem::remove(path("pavo-0")));
    camera_ = start("again", {"camera"});
    ASSERT_TRUE(waitForText("again.err", "Pavo Camera is up: node pavo-camera, process"));
    EXPECT_TRUE(std::filesystem::exists(path("pavo-0")));
    EXPECT_EQ(run({"view", "--remote", "pavo-0", "--frames", "1"}).exitCode, 0);
}

TEST_F(CommandOutput, ViewTellsEachFrameAndTheStatistics)
{
    const auto result = view({"--json", "--trace", "--frames", "5", "--format", "nv12"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const auto events = result.events();
    EXPECT_EQ(std::ranges::count(namesOf(events), "frame"), 5);
    const auto format = find(events, "format");
    EXPECT_EQ(format["width"], 1920);
    EXPECT_EQ(format["height"], 1080);
    EXPECT_EQ(format["format"], "NV12");
    const auto frame = find(events, "frame");
    EXPECT_TRUE(frame["arrivalNs"].is_number_integer());
    EXPECT_TRUE(frame["sequence"].is_number_unsigned());
    EXPECT_TRUE(frame["counter"].is_null()) << "the placeholder has none";
    const auto statistics = find(events, "statistics");
    EXPECT_EQ(statistics["frames"], 5);
    for (const char* key : {"framesPerSecond", "medianMs", "percentile99Ms", "longestMs"})
        EXPECT_TRUE(statistics[key].is_number() && statistics[key] > 0) << key;
    for (const char* key : {"missing", "leftOut"})
        EXPECT_TRUE(statistics[key].is_number_unsigned()) << key;
    EXPECT_LE(statistics["medianMs"], statistics["percentile99Ms"]);
    EXPECT_LE(statistics["percentile99Ms"], statistics["longestMs"]);
    EXPECT_EQ(events.back()["event"], "statistics");
}

TEST_F(CommandOutput, SendTellsWhoWatchesOnceAndTheStatistics)
{
    auto producer = start("send", {"send", "--json", "--size", "640x360", "--fps", "30"});
    ASSERT_TRUE(waitForText("send.out", "\"unsubscribed\""));
    auto client = start("view", {"view", "--remote", "pavo-0", "--json", "--trace"});
    ASSERT_TRUE(waitForText("send.out", "\"watcherAdded\""));
    ASSERT_TRUE(waitForText("view.out", "\"counter\":1")) << "frames of the test pattern";
    client.signal(SIGINT);
    const auto pid = client.pid();
    EXPECT_EQ(resultOf("view", client).exitCode, 0);
    ASSERT_TRUE(waitForText("send.out", "\"watcherRemoved\""));
    producer.signal(SIGTERM);
    const auto result = resultOf("send", producer);
    EXPECT_EQ(result.exitCode, 0);
    const auto events = result.events();
    const auto names = namesOf(events);
    EXPECT_EQ(find(events, "connected")["pid"], camera_.pid());
    EXPECT_EQ(std::ranges::count(names, "subscribed"), 1);
    EXPECT_EQ(std::ranges::count(names, "watcherAdded"), 1) << "the camera may tell of it twice";
    EXPECT_EQ(find(events, "watcherAdded")["pid"], pid);
    EXPECT_EQ(find(events, "watcherRemoved")["pid"], pid);
    const auto statistics = find(events, "statistics");
    EXPECT_GT(statistics["sent"], 0);
    EXPECT_GT(statistics["leftOutUnwatched"], 0);
    EXPECT_TRUE(statistics["leftOutRingFull"].is_number_unsigned());
    EXPECT_GT(statistics["seconds"], 0.0);
}

TEST_F(CommandOutput, SendEndsAfterSoManyFrames)
{
    const auto result = run({"send", "--json", "--size", "64x64", "--fps", "1000", "--frames", "20"});
    EXPECT_EQ(result.exitCode, 0);
    const auto statistics = find(result.events(), "statistics");
    EXPECT_EQ(statistics["sent"], 0);
    EXPECT_EQ(statistics["leftOutUnwatched"], 20);
}

TEST_F(CommandOutput, SendFailsWhereItsInputEndsInsideOfAFrame)
{
    std::ofstream(path("short.y4m")) << "YUV4MPEG2 W2 H2 F100:1\nFRAME\nabcdefFRAME\nabc";
    const auto y4m = run({"send", "-"}, path("short.y4m"));
    EXPECT_EQ(y4m.exitCode, 1);
    EXPECT_THAT(y4m.err, HasSubstr("pavo send: the input ends inside of frame 1: 3 of 6 bytes\n"));

    std::ofstream(path("short.raw")) << "abcdefghijk";
    const auto raw =
        run({"send", "-", "--size", "2x1", "--format", "bgra", "--fps", "100"}, path("short.raw"));
    EXPECT_EQ(raw.exitCode, 1);
    EXPECT_THAT(raw.err, HasSubstr("pavo send: the input ends inside of frame 1: 3 of 8 bytes\n"));
}

TEST_F(CommandOutput, SendEndsWithItsInput)
{
    std::ofstream(path("whole.y4m")) << "YUV4MPEG2 W2 H2 F100:1\nFRAME\nabcdefFRAME\nabcdef";
    const auto result = run({"send", "--json", "-"}, path("whole.y4m"));
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(find(result.events(), "statistics")["leftOutUnwatched"], 2);
}

// A green that is another one with the other matrix.
TEST_F(CommandOutput, SendTakesTallVideoForBT709UnlessItIsToldOtherwise)
{
    std::string video = "YUV4MPEG2 W8 H720 F30:1\n";
    for (int frame = 0; frame < 3000; ++frame)
        video += "FRAME\n" + std::string(8 * 720, '\x86') + std::string(4 * 360, '\x3f') +
                 std::string(4 * 360, '\x34');
    std::ofstream(path("tall.y4m")) << video;
    for (const auto& [matrix, colour] : {std::pair<std::string, Colour>{"auto", {0, 191, 0}},
                                         {"bt709", {0, 191, 0}},
                                         {"bt601", {16, 225, 6}}}) {
        auto producer = start("send", {"send", "-", "--matrix", matrix, "--json"}, path("tall.y4m"));
        ASSERT_TRUE(waitForText("send.out", "\"unsubscribed\""));
        EXPECT_TRUE(waitFor([&] { return isNear(colourInTheMiddle(), colour); }, kDeadline)) << matrix;
        producer.signal(SIGTERM);
        EXPECT_EQ(resultOf("send", producer).exitCode, 0);
    }
}

// Luma and chroma of the last frame's middle, as its readers take them: for BT.709.
TEST_F(CommandOutput, ViewWritesYuv4Mpeg2OfTheCamerasSizeInBT709)
{
    const std::string pixels = std::string(8, '\x70') + std::string(2, '\x48') + std::string(2, '\x3a');
    std::string video = "YUV4MPEG2 W4 H2 F30:1\n";
    for (int frame = 0; frame < 3000; ++frame)
        video += "FRAME\n" + pixels;
    std::ofstream(path("green.y4m")) << video;
    auto producer = start("send", {"send", "-", "--json"}, path("green.y4m"));
    ASSERT_TRUE(waitForText("send.out", "\"unsubscribed\""));
    const auto middle = [this]() -> Colour {
        EXPECT_EQ(view({"--y4m", path("seen.y4m"), "--frames", "10"}).exitCode, 0);
        const std::string written = readFile(path("seen.y4m"));
        constexpr std::size_t kLuma = 1920 * 1080, kFrame = kLuma * 3 / 2;
        if (written.size() < kFrame) return {};
        const auto* frame = reinterpret_cast<const unsigned char*>(written.data()) + written.size() - kFrame;
        const auto* chroma = frame + kLuma + 270 * 960 + 480;
        return {frame[540 * 1920 + 960], chroma[0], chroma[kLuma / 4]};
    };
    EXPECT_TRUE(waitFor([&] { return isNear(middle(), {134, 63, 52}); }, kDeadline));
    producer.signal(SIGTERM);
    EXPECT_EQ(resultOf("send", producer).exitCode, 0);
}

TEST_F(CommandOutput, ViewWritesWhatItIsAskedFor)
{
    const auto snapshot = view({"--json", "--snapshot", path("now.png")});
    EXPECT_EQ(snapshot.exitCode, 0) << snapshot.err;
    EXPECT_EQ(find(snapshot.events(), "picture")["file"], path("now.png"));
    EXPECT_EQ(readFile(path("now.png")).substr(0, 8), "\x89PNG\r\n\x1a\n");

    const auto y4m = view({"--y4m", path("video.y4m"), "--frames", "2"});
    EXPECT_EQ(y4m.exitCode, 0) << y4m.err;
    const auto video = readFile(path("video.y4m"));
    const std::string header = "YUV4MPEG2 W1920 H1080 F60:1 Ip A1:1 C420mpeg2 XCOLORRANGE=LIMITED\n";
    EXPECT_EQ(video.substr(0, header.size()), header);
    EXPECT_EQ(video.size(), header.size() + 2 * (6 + 1920 * 1080 * 3 / 2));

    const auto raw = view({"--raw", "-", "--frames", "1", "--format", "NV12"});
    EXPECT_EQ(raw.exitCode, 0) << raw.err;
    EXPECT_EQ(raw.out.size(), 1920U * 1080 * 3 / 2);
    EXPECT_THAT(raw.err, HasSubstr("Watching pavo-camera: 1920x1080 NV12."));
    EXPECT_THAT(raw.err, HasSubstr("1 frame, 0.00 per second"));
}

TEST_F(CommandOutput, ViewSaysWhatItCannotDo)
{
    const auto missing = run({"view", "--remote", "pavo-0", "--wait", "0", "--camera", "other"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.err, "pavo view: PipeWire has no camera named other\n");
    const auto unwritten = view({"--snapshot", path("no/folder.png")});
    EXPECT_EQ(unwritten.exitCode, 1);
    EXPECT_THAT(unwritten.err, HasSubstr("pavo view: cannot write " + path("no/folder.png") +
                                         ": No such file or directory\n"));
}

TEST_F(CommandOutput, ViewSaysWhichFormatsThereAreWhereTheCameraDoesNotOfferTheOneAskedFor)
{
    for (const auto* format : {"UYVY", "BGRx"}) {
        const auto result = view({"--json", "--frames", "1", "--format", format});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(result.err,
                  "pavo view: the camera does not offer " + std::string(format) + ", only YUY2 and NV12\n");
        EXPECT_EQ(result.out, "");
    }
}

TEST_F(CommandOutput, ViewTakesWhatThereIsWhereOthersHaveTheCameraInAnotherFormat)
{
    auto client = start("other", {"view", "--remote", "pavo-0", "--json", "--format", "NV12"});
    ASSERT_TRUE(waitForText("other.out", "\"NV12\""));
    const auto result = view({"--frames", "1", "--format", "YUY2"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.err, HasSubstr("Watching pavo-camera: 1920x1080 NV12.\n"
                                      "Others watch it already: it cannot be YUY2 until they have gone.\n"));
}

TEST_F(CommandOutput, ViewEndsWhenTheCameraGoes)
{
    auto client = start("view", {"view", "--remote", "pavo-0", "--json"});
    ASSERT_TRUE(waitForText("view.out", "\"format\""));
    camera_.signal(SIGTERM);
    const auto result = resultOf("view", client);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errorLines(), SizeIs(1)) << result.err;
    const auto events = result.events();
    EXPECT_NE(find(events, "lost")["reason"], "");
    EXPECT_EQ(events.back()["event"], "statistics");
}

}  // namespace
}  // namespace pavo::test
