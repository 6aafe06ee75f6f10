#include "Tools/BrowserPreview.h"
#include "Tools/Commands.h"
#include "Tools/StatusClient.h"
#include "Tools/TerminalPreview.h"

#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <unistd.h>

namespace pavo::tools {
namespace {

struct PreviewArguments {
    PreviewOptions preview;
    bool isHttp = false;
    std::string port;
    std::string size;
    std::string fps;
    std::string graphics;
    bool isJson = false;
};

Result<nlohmann::json> cameraStatus()
{
    const auto status = askForStatus();
    if (!status) return status.problem();
    return toJson(status.value());
}

// What does not go together on the command line; empty where all is well.
std::string conflictIn(const PreviewArguments& arguments)
{
    if (arguments.isHttp)
        return arguments.graphics.empty() ? "" : "--graphics is for the terminal, not for --http";
    if (!arguments.port.empty()) return "--port needs --http";
    if (!arguments.size.empty()) return "--size needs --http: a terminal has its own";
    if (arguments.isJson) return "--json needs --http: the terminal is full of the picture";
    return {};
}

// Why the terminal cannot show pictures; empty where it can.
std::string problemOfTerminal()
{
    if (::isatty(STDOUT_FILENO) != 1)
        return "standard output is no terminal; \"pavo preview --http\" shows the camera in a browser";
    const char* kind = std::getenv("TERM");
    const std::string name = kind ? kind : "";
    if (!name.empty() && name != "dumb") return {};
    return "the terminal can show no pictures: TERM is " + (name.empty() ? "not set" : "'" + name + "'");
}

int previewOnTerminal(const PreviewOptions& options, Reporter& reporter)
{
    if (const auto problem = problemOfTerminal(); !problem.empty()) {
        reporter.error(problem);
        return kFailure;
    }
    const StopSignal stop;
    const auto screen = TerminalScreen::open(stop);
    if (!screen) {
        reporter.error(screen.problem().text);
        return kFailure;
    }
    TerminalPreview(options, cameraStatus, stop, *screen.value()).run();
    return 0;
}

PreviewOptions optionsOf(const PreviewArguments& arguments)
{
    PreviewOptions options = arguments.preview;
    if (!arguments.port.empty()) options.port = parsePort(arguments.port).value();
    if (!arguments.size.empty()) options.size = parseSize(arguments.size).value();
    if (!arguments.fps.empty()) options.framesPerSecond = parseRate(arguments.fps).value().framesPerSecond();
    if (!arguments.graphics.empty()) options.graphics = parseGraphics(arguments.graphics).value();
    return options;
}

int preview(const PreviewArguments& arguments)
{
    Reporter reporter("pavo preview", arguments.isJson);
    if (const auto conflict = conflictIn(arguments); !conflict.empty()) {
        reporter.error(conflict);
        return kWrongUsage;
    }
    const PreviewOptions options = optionsOf(arguments);
    if (!arguments.isHttp) return previewOnTerminal(options, reporter);
    const StopSignal stop;
    return BrowserPreview(options, cameraStatus, reporter, stop).run() ? 0 : kFailure;
}

}  // namespace

void addPreviewCommand(CLI::App& app, int& exitCode)
{
    auto arguments = std::make_shared<PreviewArguments>();
    PreviewOptions& options = arguments->preview;
    CLI::App* command = app.add_subcommand("preview", "Watch the camera live, in the terminal or a browser");
    command->add_flag("--http", arguments->isHttp, "Serve a page for browsers on this computer");
    command->add_option("--port", arguments->port, "Its port, 0 for any free one; default: 7286")
        ->check(checkedBy(parsePort))
        ->type_name("PORT");
    command->add_option("--size", arguments->size, "Of the page's picture, at most; default: 960x540")
        ->check(checkedBy(parseSize))
        ->type_name("SIZE");
    command->add_option("--fps", arguments->fps, "Frames per second to show, at most; default: 30")
        ->check(checkedBy(parseRate))
        ->type_name("RATE");
    command
        ->add_option("--graphics", arguments->graphics,
                     "How the terminal draws: auto, symbols, sixels or kitty; default: auto")
        ->check(checkedBy(parseGraphics))
        ->type_name("KIND");
    command->add_option("--camera", options.cameraName, "The camera's node.name; default: pavo-camera")
        ->check(checkedBy(parseName))
        ->type_name("NAME");
    command
        ->add_option("--remote", options.remoteName,
                     "The PipeWire to ask, as pavo-0; default: as PIPEWIRE_REMOTE says")
        ->check(checkedBy(parseName))
        ->type_name("NAME");
    command->add_flag("--json", arguments->isJson,
                      "With --http: say on standard output, as JSON, where the page is");
    command->footer(
        "Waits for a camera that is not there, and finds it again when it has gone. Ctrl-C ends it, in the\n"
        "terminal q, too. The page keeps the camera awake only while somebody looks at it; every user of\n"
        "this computer can. Examples:\n"
        "    pavo preview\n"
        "    pavo preview --http");
    command->callback([arguments, &exitCode] { exitCode = preview(*arguments); });
}

}  // namespace pavo::tools
