// The camera's own costs: how soon after its start another program sees it and gets a frame, what memory it
// takes with one client, and how often it wakes up while nobody watches. One line of JSON for each server
// that it can be in: the session's daemon, or its own.
//
//     CameraBenchmark [starts [idle seconds]]        20 30
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/PipeWireSession.h"
#include "Tests/Support/ProcessFacts.h"
#include "Tests/Support/Wait.h"
#include "Tools/CameraClient.h"

#include <nlohmann/json.hpp>

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using pavo::test::ChildProcess;
using pavo::test::Switches;
using pavo::test::waitFor;
using pavo::test::wakeUpsBetween;
using pavo::tools::CameraClient;
using pavo::tools::CameraFrame;

constexpr std::chrono::seconds kPatience(20);

double milliseconds(Clock::duration duration)
{
    return std::chrono::duration<double, std::milli>(duration).count();
}

double mebibytes(std::uint64_t bytes)
{
    return static_cast<double>(bytes) / (1024 * 1024);
}

nlohmann::json spread(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const auto at = [&values](double part) {
        return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
    };
    return {{"median", at(0.5)}, {"percentile90", at(0.9)}, {"longest", at(1)}};
}

// A client that counts its frames.
class Watcher final {
public:
    // Null when there is no camera to watch.
    static std::unique_ptr<Watcher> start(std::chrono::milliseconds deadline)
    {
        std::unique_ptr<Watcher> watcher(new Watcher(deadline));
        return watcher->client_->start() ? nullptr : std::move(watcher);
    }
    ~Watcher() { client_->stop(); }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    bool waitForFrames(std::uint64_t count) const
    {
        return waitFor([this, count] { return frames_ >= count; }, kPatience);
    }
    Clock::time_point firstFrame() const { return Clock::time_point(std::chrono::nanoseconds(firstNs_)); }

private:
    explicit Watcher(std::chrono::milliseconds deadline)
    {
        CameraClient::Options options;
        options.deadline = deadline;
        options.onFrame = [this](const CameraFrame& frame) {
            if (frames_ == 0) firstNs_ = frame.arrivalNs;
            ++frames_;
        };
        client_ = std::make_unique<CameraClient>(std::move(options));
    }

    std::atomic<std::uint64_t> frames_ = 0;
    std::atomic<std::int64_t> firstNs_ = 0;  // CLOCK_MONOTONIC, which is the steady clock's
    std::unique_ptr<CameraClient> client_;
};

std::unique_ptr<Watcher> watchWhenThere()
{
    std::unique_ptr<Watcher> watcher;
    // A camera's own server does not even answer before it is there.
    waitFor(
        [&watcher] {
            watcher = Watcher::start(kPatience);
            return watcher != nullptr;
        },
        kPatience);
    return watcher;
}

std::uint64_t wakeUpsWithin(pid_t process, std::chrono::seconds time)
{
    // What has just ended has to come to rest first, also the threads that did its work.
    Switches last = pavo::test::voluntarySwitches(process);
    auto since = Clock::now();
    waitFor(
        [&] {
            Switches now = pavo::test::voluntarySwitches(process);
            if (std::exchange(last, now) != now) since = Clock::now();
            return Clock::now() - since > std::chrono::seconds(2);
        },
        kPatience);
    const Switches before = pavo::test::voluntarySwitches(process);
    const auto end = Clock::now() + time;
    waitFor([end] { return Clock::now() >= end; }, time + kPatience);
    return wakeUpsBetween(before, pavo::test::voluntarySwitches(process));
}

nlohmann::json measureStart(const std::string& program, int starts)
{
    std::vector<double> seen, firstFrame;
    for (int index = 0; index < starts; ++index) {
        const auto begin = Clock::now();
        ChildProcess camera({program, "camera"});
        const auto watcher = watchWhenThere();
        const auto visible = Clock::now();
        if (!watcher || !watcher->waitForFrames(1)) return nullptr;
        seen.push_back(milliseconds(visible - begin));
        firstFrame.push_back(milliseconds(watcher->firstFrame() - begin));
        camera.end(SIGTERM);
    }
    return {{"starts", starts}, {"visibleMs", spread(seen)}, {"firstFrameMs", spread(firstFrame)}};
}

nlohmann::json memoryOf(pid_t process)
{
    return {{"residentMiB", mebibytes(pavo::test::residentMemory(process))},
            {"proportionalMiB", mebibytes(pavo::test::proportionalMemory(process))},
            {"privateMiB", mebibytes(pavo::test::privateMemory(process))}};
}

nlohmann::json measureRunning(const std::string& program, std::chrono::seconds idle)
{
    ChildProcess camera({program, "camera"});
    nlohmann::json memory, wakeUps;
    auto watcher = watchWhenThere();
    if (!watcher || !watcher->waitForFrames(300)) return nullptr;
    memory["placeholder"] = memoryOf(camera.pid());
    watcher.reset();
    memory["afterClient"] = memoryOf(camera.pid());
    wakeUps["alone"] = wakeUpsWithin(camera.pid(), idle);

    ChildProcess producer({program, "send", "--size", "1920x1080"});
    watcher = watchWhenThere();
    if (!watcher || !watcher->waitForFrames(300)) return nullptr;
    memory["producer"] = memoryOf(camera.pid());
    watcher.reset();
    wakeUps["withProducer"] = wakeUpsWithin(camera.pid(), idle);
    wakeUps["seconds"] = idle.count();
    return {{"memory", memory}, {"idleWakeUps", wakeUps}};
}

bool measure(bool isEmbedded, int starts, std::chrono::seconds idle)
{
    using pavo::test::PipeWireSession;
    PipeWireSession session(isEmbedded ? PipeWireSession::Daemon::absent : PipeWireSession::Daemon::running);
    if (!session.isReady()) return false;
    const pavo::test::TemporaryFolder names;
    ::setenv("PAVO_BOOTSTRAP_DIR", names.path().c_str(), 1);
    ::setenv("PAVO_PIPEWIRE", isEmbedded ? "embedded" : "daemon", 1);
    ::setenv("PIPEWIRE_REMOTE", isEmbedded ? "pavo-0" : "pipewire-0", 1);
    const std::string program = PAVO_PROGRAM;
    std::array<double, 3> load{};
    ::getloadavg(load.data(), 3);
    nlohmann::json result = {{"benchmark", "camera"},
                             {"server", isEmbedded ? "embedded" : "daemon"},
                             {"loadAverage", load[0]},
                             {"processors", ::sysconf(_SC_NPROCESSORS_ONLN)},
                             {"start", measureStart(program, starts)},
                             {"running", measureRunning(program, idle)}};
    std::puts(result.dump().c_str());
    std::fflush(stdout);
    return !result["start"].is_null() && !result["running"].is_null();
}

}  // namespace

int main(int argc, char** argv)
{
    const int starts = argc > 1 ? std::atoi(argv[1]) : 20;
    const std::chrono::seconds idle(argc > 2 ? std::atoi(argv[2]) : 30);
    if (starts < 1 || idle.count() < 1) return 2;
    const bool isDaemonMeasured = measure(false, starts, idle);
    return measure(true, starts, idle) && isDaemonMeasured ? 0 : 1;
}
