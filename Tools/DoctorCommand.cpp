#include "Tools/Commands.h"
#include "Tools/Doctor/Doctor.h"
#include "Tools/Doctor/LinuxSystem.h"
#include "Tools/Reporter.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

namespace pavo::tools {
namespace {

struct DoctorOptions {
    bool isJson = false;
    bool isList = false;
};

// Diagnosis or list, in the wanted form. False once nobody reads it any more.
template <typename Answer>
bool show(const Answer& answer, bool isJson)
{
    Reporter reporter("pavo doctor", isJson);
    if (isJson) {
        const auto events = asEvents(answer);
        return std::all_of(events.begin(), events.end(),
                           [&reporter](const auto& event) { return reporter.emit(event); });
    }
    const std::string text = asText(answer);
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}

int examine(const DoctorOptions& options)
{
    if (options.isList) return show(allCauses(), options.isJson) ? 0 : kFailure;
    const LinuxSystem system;
    const Diagnosis diagnosis = diagnose(system);
    return show(diagnosis, options.isJson) && diagnosis.count(Verdict::problem) == 0 ? 0 : kFailure;
}

}  // namespace

void addDoctorCommand(CLI::App& app, int& exitCode)
{
    auto options = std::make_shared<DoctorOptions>();
    CLI::App* command = app.add_subcommand("doctor", "Find out why the camera is not seen, or seen badly");
    command->add_flag("--json", options->isJson, "Say it on standard output, one JSON object a line");
    command->add_flag("--list", options->isList, "Say which causes are known, and what to do about each");
    command->footer("Looks at the camera, PipeWire, the desktop's portal and running browsers, and changes "
                    "nothing. Run it\n"
                    "as the user, and with the environment, of the program that does not see the camera. The "
                    "exit code is 1\n"
                    "where a problem was found; hints and what cannot be told are none.");
    command->callback([options, &exitCode] { exitCode = examine(*options); });
}

}  // namespace pavo::tools
