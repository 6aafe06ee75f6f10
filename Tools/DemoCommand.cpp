#include "Tools/Commands.h"
#include "Tools/Demo.h"

#include <map>
#include <memory>
#include <string>

namespace pavo::tools {

void addDemoCommand(CLI::App& app, int& exitCode)
{
    static const std::map<std::string, SessionKind> kinds = {{"auto", SessionKind::automatic},
                                                             {"running", SessionKind::running},
                                                             {"private", SessionKind::isolated},
                                                             {"embedded", SessionKind::embedded}};
    auto options = std::make_shared<DemoOptions>();
    CLI::App* command = app.add_subcommand("demo", "Watch a camera through its life, with two clients");
    command->add_option("--sheet", options->sheetPath,
                        "Contact sheet of what GStreamer saw; default: pavo-demo.png");
    command->add_option("--phase", options->phaseSeconds, "Seconds of each of the five phases; default: 5")
        ->check(CLI::Range(2.0, 15.0));
    command->add_option("--pipewire", options->session, "auto, running, private or embedded; default: auto")
        ->transform(CLI::CheckedTransformer(kinds));
    command->footer(
        "Placeholder, a video file decoded by ffmpeg, the producer killed, placeholder, a second producer\n"
        "of another size and rate, the end. Touches neither a camera of yours nor its producers.");
    command->callback([options, &exitCode] {
        const StopSignal stop;
        Reporter reporter("pavo demo", false);
        exitCode = Demo(*options, reporter, stop).run() ? 0 : kFailure;
    });
}

}  // namespace pavo::tools
