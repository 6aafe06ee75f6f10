// The camera beside GStreamer's own camera (`pipewiresink mode=provide`), in one run on one PipeWire, turn by
// turn: what a client gets through what happens to cameras in a day, and what a frame costs the machine. Both
// show 1920 x 1080 at 60 frames a second. Says on one line of JSON the medians of all rounds.
//
//     PeerBenchmark [rounds]        5
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/PipeWireSession.h"
#include "Tests/Support/Wait.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using pavo::test::ChildProcess;
using pavo::test::PipeWireSession;
using pavo::test::waitFor;

constexpr auto kWatched = 3s;

// A client that counts: GStreamer's, which is the peer's own.
class Viewer final {
public:
    Viewer(const PipeWireSession& session, const std::string& camera)
        : output_(session.folder() + "/viewer-" + std::to_string(++number_) + ".txt"),
          pipeline_({"gst-launch-1.0", "-v", "pipewiresrc", "target-object=" + camera, "!", "video/x-raw",
                     "!", "fakesink", "silent=false", "sync=false"},
                    output_)
    {
        waitFor([this] { return count() > 0; });
    }

    // One line for each frame.
    std::size_t count() const
    {
        const std::string text = pavo::test::readFile(output_);
        std::size_t result = 0;
        for (std::size_t at = text.find(kFrame); at != std::string::npos; at = text.find(kFrame, at + 1))
            ++result;
        return result;
    }
    // Frames a second during the time that it is watched from now on.
    double watch() const
    {
        const auto before = count();
        const auto begin = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(kWatched);
        const auto after = count();
        return static_cast<double>(after - before) /
               std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    }

private:
    static constexpr std::string_view kFrame = "= chain";
    static inline int number_ = 0;

    const std::string output_;
    ChildProcess pipeline_;
};

// What the scheduler has given to a process, all threads, in milliseconds.
double processorMs(pid_t process)
{
    double sum = 0;
    std::error_code error;
    for (const auto& thread :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task", error)) {
        std::uint64_t ns = 0;
        std::ifstream(thread.path() / "schedstat") >> ns;
        sum += static_cast<double>(ns) / 1e6;
    }
    return sum;
}

class Camera {
public:
    virtual ~Camera() = default;
    virtual std::string nodeName() const = 0;
    virtual void startProducer() = 0;
    virtual void killProducer() = 0;
    // The processes that make the frames and bring them to PipeWire.
    virtual std::vector<pid_t> processes() const = 0;
    bool isVisible() const { return PipeWireSession::node(nodeName()).has_value(); }
};

class PavoCamera final : public Camera {
public:
    explicit PavoCamera(const PipeWireSession& session)
        : camera_({PAVO_PROGRAM, "camera"}, session.folder() + "/camera.log")
    {}
    std::string nodeName() const override { return "pavo-camera"; }
    void startProducer() override
    {
        producer_ = ChildProcess({PAVO_PROGRAM, "send", "--size", "1920x1080", "--fps", "60", "--json"});
    }
    void killProducer() override { producer_.end(SIGKILL); }
    std::vector<pid_t> processes() const override { return {camera_.pid(), producer_.pid()}; }

private:
    ChildProcess camera_;
    ChildProcess producer_;
};

class SinkCamera final : public Camera {
public:
    std::string nodeName() const override { return "peer-camera"; }
    void startProducer() override
    {
        pipeline_ = ChildProcess(
            {"gst-launch-1.0", "videotestsrc", "is-live=true", "pattern=smpte", "!",
             "video/x-raw,format=YUY2,width=1920,height=1080,framerate=60/1", "!", "pipewiresink",
             "mode=provide",
             "stream-properties=props,node.name=peer-camera,node.description=Peer,media.class=Video/Source,"
             "media.role=Camera"});
    }
    void killProducer() override { pipeline_.end(SIGKILL); }
    std::vector<pid_t> processes() const override { return {pipeline_.pid()}; }

private:
    ChildProcess pipeline_;
};

using Figures = std::map<std::string, std::vector<double>>;

void runDay(const PipeWireSession& session, Camera& camera, Figures& figures)
{
    camera.startProducer();
    waitFor([&] { return camera.isVisible(); });
    {
        const Viewer first(session, camera.nodeName());
        std::map<pid_t, double> before;
        for (const pid_t process : camera.processes())
            before[process] = processorMs(process);
        const auto seen = first.count();
        figures["firstClientFps"].push_back(first.watch());
        double spent = 0;
        for (const auto& [process, ms] : before)
            spent += processorMs(process) - ms;
        figures["processorMsPerFrameWithDrawing"].push_back(
            spent / static_cast<double>(std::max<std::size_t>(first.count() - seen, 1)));
        {
            const Viewer second(session, camera.nodeName());
            figures["besideAnotherFps"].push_back(first.watch());
        }
        figures["afterTheOtherLeftFps"].push_back(first.watch());
    }
    const Viewer next(session, camera.nodeName());
    figures["nextClientFps"].push_back(next.watch());
    camera.killProducer();
    figures["withoutProducerFps"].push_back(next.watch());
    camera.startProducer();
    figures["afterProducerCameBackFps"].push_back(next.watch());
    camera.killProducer();
}

double part(std::vector<double> values, double share)
{
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

nlohmann::json summary(const Figures& figures)
{
    nlohmann::json result;
    for (const auto& [name, values] : figures)
        result[name] = {{"median", part(values, 0.5)}, {"least", part(values, 0)}, {"most", part(values, 1)}};
    return result;
}

int measure(unsigned rounds)
{
    std::string why;
    if (!PipeWireSession::isAvailable(&why) || !pavo::test::isOnPath("gst-launch-1.0")) {
        std::fprintf(stderr, "PeerBenchmark: %s\n", why.empty() ? "there is no gst-launch-1.0" : why.c_str());
        return 1;
    }
    Figures own;
    Figures peer;
    for (unsigned round = 0; round < rounds; ++round) {
        // A session each: what one leaves behind must not meet the other.
        {
            const PipeWireSession session;
            PavoCamera camera(session);
            runDay(session, camera, own);
        }
        {
            const PipeWireSession session;
            SinkCamera camera;
            runDay(session, camera, peer);
        }
    }
    std::array<double, 1> load{};
    ::getloadavg(load.data(), 1);
    const nlohmann::json result = {{"benchmark", "peers"},
                                   {"rounds", rounds},
                                   {"pavo", summary(own)},
                                   {"pipewiresink", summary(peer)},
                                   {"loadAverage", load.front()}};
    std::puts(result.dump().c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    unsigned rounds = 5;
    if (argc > 1) {
        const std::string_view text = argv[1];
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), rounds);
        if (argc > 2 || error != std::errc() || end != text.data() + text.size() || rounds == 0) {
            std::fprintf(stderr, "usage: PeerBenchmark [rounds]\n");
            return 2;
        }
    }
    return measure(rounds);
}
