// A producer in another language, which shares no code with ours, with the camera as it is shipped and a
// client.

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Wait.h"
#include "Tools/PngFile.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace pavo::test {
namespace {

using Json = nlohmann::json;

// Sanitizers make a camera, a client and its PNG files slow.
constexpr std::chrono::seconds kDeadline(60);

struct Colour {
    int red, green, blue;
};

// BT.601, video range.
Colour rgbOf(int y, int cb, int cr)
{
    const double luma = 1.164384 * (y - 16);
    const auto limited = [](double value) {
        return static_cast<int>(std::min(255.0, std::max(0.0, value + 0.5)));
    };
    return {limited(luma + 1.596027 * (cr - 128)),
            limited(luma - 0.391762 * (cb - 128) - 0.812968 * (cr - 128)),
            limited(luma + 2.017232 * (cb - 128))};
}

// The events that a program has written so far, one JSON object a line.
std::vector<Json> eventsIn(const std::string& path)
{
    std::vector<Json> events;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        if (auto event = Json::parse(line, nullptr, false); event.is_object())
            events.push_back(std::move(event));
    return events;
}

class PythonProducer : public testing::Test {
protected:
    void SetUp() override
    {
        ChildProcess probe({PAVO_PYTHON, "-c", "import jeepney"});
        if (probe.waitForExit(kDeadline) != 0) GTEST_SKIP() << "python3-jeepney is not installed";
        for (const char* name : {"HOME", "XDG_RUNTIME_DIR", "PAVO_BOOTSTRAP_DIR"})
            ::setenv(name, folder_.path().c_str(), 1);
        ::setenv("PAVO_PIPEWIRE", "embedded", 1);
        ::setenv("PAVO_LOG", "stderr", 1);
        camera_ = ChildProcess({PAVO_PROGRAM, "camera", "--json"}, path("camera.log"));
        ASSERT_TRUE(waitForEvent("camera.log", {{"event", "started"}})) << readFile(path("camera.log"));
    }
    void TearDown() override
    {
        if (HasFailure())
            for (const char* file : {"camera.log", "producer.log"})
                std::fprintf(stderr, "--- %s\n%s", file, readFile(path(file)).c_str());
    }

    std::string path(const std::string& file) const { return folder_.path() + "/" + file; }
    bool waitForEvent(const std::string& file, const Json& event, std::size_t times = 1) const
    {
        // An event counts when it has the fields of the wanted one, whatever else it has.
        const auto isWanted = [&event](const Json& candidate) {
            for (const auto& [key, value] : event.items())
                if (candidate.value(key, Json()) != value) return false;
            return true;
        };
        return waitFor(
            [&] {
                const auto events = eventsIn(path(file));
                return static_cast<std::size_t>(std::count_if(events.begin(), events.end(), isWanted)) >=
                       times;
            },
            kDeadline);
    }
    bool producerSays(const Json& event, std::size_t times = 1) const
    {
        return waitForEvent("producer.log", event, times);
    }

    void startProducer(int width, int height, int y, int cb, int cr)
    {
        std::vector<std::string> arguments = {PAVO_PYTHON, PAVO_PRODUCER};
        for (const int number : {width, height, y, cb, cr})
            arguments.push_back(std::to_string(number));
        producer_ = ChildProcess(arguments, path("producer.log"));
    }
    ChildProcess startClient(const std::string& name) const
    {
        return ChildProcess({PAVO_PROGRAM, "view", "--remote", "pavo-0", "--wait", "60", "--every", "0.2",
                             "--out", path(name + "-%04d.png"), "--seconds", "150"},
                            path("view.log"));
    }
    // Whether one of the client's pictures has the colour in its middle.
    bool clientSees(const std::string& name, const Colour& colour) const
    {
        unsigned number = 0;
        return waitFor(
            [&] {
                std::array<char, 16> suffix{};
                std::snprintf(suffix.data(), suffix.size(), "-%04u.png", number);
                if (::access(path(name + suffix.data()).c_str(), R_OK) != 0) return false;
                ++number;
                auto picture = tools::readPng(path(name + suffix.data()));
                return picture && isNear(picture.value(), colour);
            },
            kDeadline);
    }

    ChildProcess camera_;
    ChildProcess producer_;

private:
    static bool isNear(tools::Image& picture, const Colour& colour)
    {
        constexpr int kTolerance = 3;
        const auto [width, height] = std::pair(picture.format().width, picture.format().height);
        const auto* pixel = picture.view().row(0, height / 2) + std::size_t{width} / 2 * 4;
        return std::abs(pixel[2] - colour.red) <= kTolerance &&
               std::abs(pixel[1] - colour.green) <= kTolerance &&
               std::abs(pixel[0] - colour.blue) <= kTolerance;
    }

    const TemporaryFolder folder_;
};

TEST_F(PythonProducer, IsToldWhoWatchesAndItsColourIsSeen)
{
    startProducer(1280, 720, 63, 102, 240);
    ASSERT_TRUE(producerSays({{"event", "unsubscribed"}, {"sent", 0}}));

    auto client = startClient("shot");
    ASSERT_TRUE(producerSays({{"event", "subscribed"}}));
    ASSERT_TRUE(producerSays({{"event", "watching"}, {"pid", client.pid()}}));
    EXPECT_TRUE(clientSees("shot", rgbOf(63, 102, 240)));

    const Json stopped = {{"event", "stopped watching"}, {"pid", client.pid()}};
    client.signal(SIGTERM);
    EXPECT_EQ(client.waitForExit(kDeadline), 0);
    EXPECT_TRUE(producerSays({{"event", "unsubscribed"}}, 2));
    EXPECT_TRUE(producerSays(stopped));

    camera_.signal(SIGTERM);
    EXPECT_EQ(camera_.waitForExit(kDeadline), 0);
    EXPECT_TRUE(producerSays({{"event", "lost"}}));
    EXPECT_EQ(producer_.waitForExit(kDeadline), 0);
}

TEST_F(PythonProducer, IsToldOfAClientThatWasThereBefore)
{
    auto client = startClient("early");
    ASSERT_TRUE(waitFor([this] { return ::access(path("early-0000.png").c_str(), R_OK) == 0; }, kDeadline));
    startProducer(641, 361, 145, 147, 44);
    ASSERT_TRUE(producerSays({{"event", "subscribed"}}));
    EXPECT_TRUE(producerSays({{"event", "watching"}, {"pid", client.pid()}}));
    EXPECT_TRUE(clientSees("early", rgbOf(145, 147, 44)));
}

TEST_F(PythonProducer, CanBeKilledAndItsSuccessorIsSeen)
{
    startProducer(640, 360, 63, 102, 240);
    auto client = startClient("shot");
    ASSERT_TRUE(clientSees("shot", rgbOf(63, 102, 240)));
    producer_.end(SIGKILL);
    startProducer(640, 360, 120, 140, 90);
    EXPECT_TRUE(producerSays({{"event", "watching"}, {"pid", client.pid()}}));
    EXPECT_TRUE(clientSees("shot", rgbOf(120, 140, 90)));
}

}  // namespace
}  // namespace pavo::test
