#include "Stub/Stub.h"
#include "Tools/Arguments.h"
#include "Tools/Commands.h"
#include "Tools/ProgramPaths.h"
#include "Tools/Reporter.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <unistd.h>

namespace pavo::tools {
namespace {

void sayStarted()
{
    Reporter("pavo camera", false)
        .say("Pavo Camera is up: node pavo-camera, process " + std::to_string(::getpid()) +
             ". Ctrl-C stops it.");
}

void emitStarted()
{
    Reporter("pavo camera", true).emit({{"event", "started"}, {"pid", ::getpid()}});
}

struct CameraOptions {
    std::string bundlePath = defaultBundlePath();
    bool isJson = false;
};

}  // namespace

void addCameraCommand(CLI::App& app, int& exitCode)
{
    auto options = std::make_shared<CameraOptions>();
    CLI::App* command = app.add_subcommand("camera", "Be the camera, until Ctrl-C");
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
    command->callback([options, &exitCode] {
        exitCode = runStub(options->bundlePath, options->isJson ? emitStarted : sayStarted);
    });
}

}  // namespace pavo::tools
