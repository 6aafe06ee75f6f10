#include "Tools/Arguments.h"
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
    auto session = std::make_shared<std::string>("auto");
    CLI::App* command = app.add_subcommand("demo", "Watch a camera through its life, with two clients");
    command
        ->add_option("--sheet", options->sheetPath,
                     "Contact sheet of what GStreamer saw; default: pavo-demo.png")
        ->check(checkedBy(parseName))
        ->type_name("FILE");
    command->add_option("--phase", options->phaseSeconds, "Seconds of each of the five phases; default: 5")
        ->check([](const std::string& text) {
            const auto seconds = parseDuration(text);
            const bool isGood = seconds && seconds.value() >= 2 && seconds.value() <= 15;
            return isGood ? std::string() : "a phase takes from 2 to 15 seconds, not '" + text + "'";
        })
        ->type_name("SECONDS");
    command->add_option("--pipewire", *session, "Where: auto, running, private or embedded; default: auto")
        ->check([](const std::string& text) {
            return kinds.contains(text)
                       ? std::string()
                       : "a PipeWire is auto, running, private or embedded, not '" + text + "'";
        })
        ->type_name("WHICH");
    command->footer(
        "Placeholder, a video file decoded by ffmpeg, the producer killed, placeholder, a second producer\n"
        "of another size and rate, the end. Touches neither a camera of yours nor its producers.");
    command->callback([options, session, &exitCode] {
        options->session = kinds.at(*session);
        const StopSignal stop;
        Reporter reporter("pavo demo", false);
        exitCode = Demo(*options, reporter, stop).run() ? 0 : kFailure;
    });
}

}  // namespace pavo::tools
