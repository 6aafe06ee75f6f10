#include "Platform/CoreMediaIO/linux/CameraReport.h"
#include "Platform/Support/Dispatch.h"
#include "Stub/Stub.h"
#include "Tools/Arguments.h"
#include "Tools/CommandLine.h"
#include "Tools/Commands.h"
#include "Tools/ProgramPaths.h"
#include "Tools/Reporter.h"
#include "Tools/StatusService.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <unistd.h>

namespace pavo::tools {
namespace {

constexpr std::int64_t kBetweenLooksNs = 5'000'000;
constexpr int kLooks = 400;

struct CameraOptions {
    std::string bundlePath = defaultBundlePath();
    bool isJson = false;
};

void sayStarted(Reporter& reporter)
{
    reporter.say("Pavo Camera is up: node pavo-camera, process " + std::to_string(::getpid()) +
                 ". Ctrl-C stops it.");
    reporter.emit({{"event", "started"}, {"pid", ::getpid()}});
}

void sayThatNobodyCanSeeIt(Reporter& reporter)
{
    const char* wanted = std::getenv("PAVO_PIPEWIRE");
    const bool isDaemonWanted = wanted && std::string_view(wanted) == "daemon";
    reporter.say(isDaemonWanted
                     ? "No PipeWire daemon answers, and PAVO_PIPEWIRE=daemon asks for one: the camera "
                       "appears as soon as one does."
                     : "No PipeWire answers, and the camera cannot be one of its own: it appears as soon as "
                       "that changes. Is XDG_RUNTIME_DIR a folder that can be written to?");
}

// A client that is started on the news finds the camera; where PipeWire does not answer, people should hear
// why nobody does. Looks until PipeWire has answered, which takes some milliseconds, and then never again: a
// camera that nobody watches must not wake up.
void sayWhenItCanBeSeen(const std::shared_ptr<Reporter>& reporter, int looksLeft)
{
    const auto report = cmio::reportCameras();
    const bool isWaiting = report && report->pipeWire == cmio::PipeWireState::waiting;
    if (isWaiting && looksLeft > 0) {
        dispatch::after(dispatch_time(DISPATCH_TIME_NOW, kBetweenLooksNs),
                        dispatch_get_global_queue(QOS_CLASS_UTILITY, 0),
                        [reporter, looksLeft] { sayWhenItCanBeSeen(reporter, looksLeft - 1); });
        return;
    }
    sayStarted(*reporter);
    if (isWaiting) sayThatNobodyCanSeeIt(*reporter);
}

int beCamera(const CameraOptions& options)
{
    // Kept by the looks for PipeWire, too, one of which may come while the process ends.
    const auto reporter = std::make_shared<Reporter>("pavo camera", options.isJson);
    auto service = StatusService::create(PAVO_VERSION);
    if (!service) {
        reporter->error(service.problem().text);
        return kFailure;
    }
    return runStub(options.bundlePath, [&reporter, &service] {
        service.value()->start();
        sayWhenItCanBeSeen(reporter, kLooks);
    });
}

void addCameraItself(CLI::App& app, int& exitCode)
{
    auto options = std::make_shared<CameraOptions>();
    CLI::App* command = app.add_subcommand("camera", kCameraSummary);
    command
        ->add_option("--bundle", options->bundlePath,
                     "The camera's bundle folder; default: the one that came with pavo")
        ->check(checkedBy(parseName))
        ->type_name("FOLDER");
    command->add_flag("--json", options->isJson, "Say on standard output, as JSON, when the camera is up");
    command->footer(
        "The camera is a node of PipeWire. Without a PipeWire daemon it serves one of its own, named\n"
        "pavo-0: clients find it with PIPEWIRE_REMOTE=pavo-0. PAVO_PIPEWIRE=daemon or =embedded decides.\n"
        "What happens is written to the journal, or to standard error with PAVO_LOG=stderr.");
    command->callback([options, &exitCode] { exitCode = beCamera(*options); });
}

}  // namespace
}  // namespace pavo::tools

// The program pavo-camera, which is started as pavo is: "pavo camera ...". It is one of its own because a
// camera runs all day, and what the other commands load would be in its memory.
int main(int argc, char** argv)
{
    return pavo::tools::runCommandLine(argc, argv, {pavo::tools::addCameraItself});
}
