// How a camera's status is written, for programs, for people, and on a terminal.

#include "Tools/CameraStatus.h"
#include "Tools/StatusText.h"
#include "Tools/TerminalScreen.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace pavo::tools {
namespace {

using nlohmann::json;
using testing::Contains;
using testing::HasSubstr;
using testing::StartsWith;

CameraStatus liveStatus()
{
    CameraStatus status;
    status.pid = 41;
    status.uptimeSeconds = 4000.5;
    status.version = "1.2.3";
    status.pipeWire = CameraStatus::PipeWire::daemon;
    status.nodeName = "pavo-camera";
    status.nodeLabel = "Pavo Camera";
    status.nodeId = 52;
    status.state = CameraStatus::State::live;
    status.format = {"YUY2", 1920, 1080};
    status.producer = {77, "studio", 61};
    status.clients = {{{101, "firefox", 5}, "org.mozilla.firefox"}, {{102, "gst-launch-1.0", 7300}, {}}};
    status.frames = {100, 90, 4, 3, 2, 0, 59.94};
    return status;
}

CameraStatus waitingStatus()
{
    CameraStatus status;
    status.pid = 41;
    status.version = "1.2.3";
    return status;
}

std::string textOfAll(const CameraStatus& status)
{
    std::string text;
    for (const auto& line : textOf(status))
        text += line + "\n";
    return text;
}

TEST(CameraStatus, HasTheKeysThatTheManualTells)
{
    const json expected = json::parse(R"({
        "pid": 41, "uptime_s": 4000.5, "version": "1.2.3", "pipewire": "daemon",
        "node": {"name": "pavo-camera", "id": 52, "label": "Pavo Camera"},
        "state": "live", "format": {"pixel": "YUY2", "width": 1920, "height": 1080},
        "producer": {"pid": 77, "program": "studio", "connected_s": 61.0},
        "clients": [
            {"pid": 101, "program": "firefox", "app_id": "org.mozilla.firefox", "connected_s": 5.0},
            {"pid": 102, "program": "gst-launch-1.0", "app_id": null, "connected_s": 7300.0}],
        "frames": {"sent": 100, "drawn": 90, "dropped": 9, "rate": 59.94,
            "dropped_because": {"replaced": 4, "no_buffer": 3, "unusable": 2, "unwatched": 0}}})");
    EXPECT_EQ(toJson(liveStatus()), expected);
}

TEST(CameraStatus, WhatIsNotThereIsNull)
{
    const json object = toJson(waitingStatus());
    EXPECT_EQ(object["pipewire"], "waiting");
    EXPECT_EQ(object["state"], "waiting");
    for (const char* key : {"format", "producer"})
        EXPECT_TRUE(object.at(key).is_null()) << key;
    EXPECT_TRUE(object["node"].at("id").is_null());
    EXPECT_EQ(object["clients"], json::array());
}

TEST(CameraStatus, ComesBackFromJsonAsItWas)
{
    for (const auto& status : {liveStatus(), waitingStatus()}) {
        const json object = toJson(status);
        const auto read = statusFromJson(object);
        ASSERT_TRUE(read) << read.problem().text;
        EXPECT_EQ(toJson(read.value()), object);
    }
    for (const char* state : {"placeholder", "live", "idle", "waiting"})
        for (const char* pipeWire : {"daemon", "embedded", "waiting"}) {
            json object = toJson(liveStatus());
            object["state"] = state;
            object["pipewire"] = pipeWire;
            const auto read = statusFromJson(object);
            ASSERT_TRUE(read);
            EXPECT_EQ(toJson(read.value()), object);
        }
}

TEST(CameraStatus, IgnoresKeysThatItDoesNotKnow)
{
    json object = toJson(liveStatus());
    object["weather"] = "fine";
    EXPECT_TRUE(statusFromJson(object));
}

TEST(CameraStatus, SaysWhatIsWrongWithJsonOfAnotherShape)
{
    const json good = toJson(liveStatus());
    for (const auto& [key, value] : good.items()) {
        json missing = good;
        missing.erase(key);
        EXPECT_FALSE(statusFromJson(missing)) << key;
        json other = good;
        other[key] = json::array({json::array()});
        EXPECT_FALSE(statusFromJson(other)) << key;
    }
    for (const json& other : {json(), json("text"), json::array(), json(json::value_t::discarded)})
        EXPECT_FALSE(statusFromJson(other));
    json unknown = good;
    unknown["state"] = "asleep";
    const auto read = statusFromJson(unknown);
    ASSERT_FALSE(read);
    EXPECT_THAT(read.problem().text, StartsWith("its answer cannot be read: "));
}

TEST(StatusText, TellsPeopleEverything)
{
    EXPECT_EQ(textOfAll(liveStatus()),
              "Pavo Camera 1.2.3, process 41, up for 1 h 6 min\n"
              "State     live: 2 clients watch the producer's pictures\n"
              "PipeWire  the session's daemon; node pavo-camera, number 52\n"
              "Format    YUY2, 1920x1080\n"
              "Producer  studio, process 77, for 1 min\n"
              "Frames    59.9 per second; 90 drawn, 9 dropped: 4 came too soon after the one before, 3 found "
              "no free buffer, 2 could not be read\n"
              "Clients   firefox, process 101, for 5 s, through a portal as org.mozilla.firefox\n"
              "          gst-launch-1.0, process 102, for 2 h 1 min\n");
}

TEST(StatusText, SaysWhichStateItIs)
{
    CameraStatus status = liveStatus();
    status.state = CameraStatus::State::placeholder;
    EXPECT_THAT(textOf(status),
                Contains("State     placeholder: 2 clients watch, and the producer has sent nothing yet"));
    status.producer.reset();
    status.clients.pop_back();
    EXPECT_THAT(textOf(status),
                Contains("State     placeholder: 1 client watches, and there is no producer"));
    EXPECT_THAT(textOf(status), Contains("Producer  none"));
    status.clients.clear();
    status.state = CameraStatus::State::idle;
    EXPECT_THAT(textOf(status), Contains("State     idle: nobody watches"));
    EXPECT_THAT(textOf(status), Contains("Clients   none"));
    const auto waiting = textOfAll(waitingStatus());
    EXPECT_THAT(waiting, HasSubstr("State     waiting for PipeWire: nobody can see the camera\n"
                                   "PipeWire  none answers\n"));
    status.pipeWire = CameraStatus::PipeWire::embedded;
    EXPECT_THAT(textOf(status), Contains(StartsWith("PipeWire  the camera's own, pavo-0; node ")));
}

TEST(StatusText, TellsTimesInTwoUnitsAtMost)
{
    CameraStatus status = waitingStatus();
    const auto upFor = [&status](double seconds) {
        status.uptimeSeconds = seconds;
        const std::string line = textOf(status).front();
        return line.substr(line.find("up for "));
    };
    EXPECT_EQ(upFor(0), "up for 0 s");
    EXPECT_EQ(upFor(59.9), "up for 59 s");
    EXPECT_EQ(upFor(60), "up for 1 min");
    EXPECT_EQ(upFor(3599), "up for 59 min");
    EXPECT_EQ(upFor(3600), "up for 1 h 0 min");
    EXPECT_EQ(upFor(86399), "up for 23 h 59 min");
    EXPECT_EQ(upFor(90000), "up for 1 d 1 h");
}

TEST(StatusText, NamesOfOthersCannotChangeTheTerminal)
{
    CameraStatus status = liveStatus();
    status.producer->program = "a\x1b[2Jb\nc\x7F";
    status.clients[0].process.program = "\xC2\x9B"
                                        "2J caf\xC3\xA9 \xC2\xA9";
    status.clients[0].applicationId = "x\r\x07";
    const auto text = textOfAll(status);
    EXPECT_THAT(text, HasSubstr("a?[2Jb?c?, process 77"));
    EXPECT_THAT(text, HasSubstr("?2J caf\xC3\xA9 \xC2\xA9, process 101"));
    EXPECT_THAT(text, HasSubstr("as x??\n"));
}

TEST(StatusText, AProcessWithoutANameIsANumber)
{
    CameraStatus status = liveStatus();
    status.producer->program.clear();
    EXPECT_THAT(textOf(status), Contains("Producer  process 77, for 1 min"));
}

TEST(TerminalPage, ReplacesTheOneBefore)
{
    EXPECT_EQ(pageOf({"one", "two"}, 24), "\x1b[Hone\x1b[K\r\ntwo\x1b[K\x1b[J");
    EXPECT_EQ(pageOf({}, 24), "\x1b[H\x1b[J");
}

TEST(TerminalPage, NeverScrolls)
{
    EXPECT_EQ(pageOf({"one", "two", "three"}, 2), pageOf({"one", "two"}, 2));
}

}  // namespace
}  // namespace pavo::tools
