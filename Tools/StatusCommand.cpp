#include "Tools/Commands.h"
#include "Tools/Reporter.h"
#include "Tools/StatusClient.h"
#include "Tools/StatusText.h"
#include "Tools/StopSignal.h"
#include "Tools/TerminalScreen.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace pavo::tools {
namespace {

constexpr std::int64_t kIntervalNs = 1'000'000'000;

struct StatusOptions {
    bool isJson = false;
    bool isLive = false;
};

bool print(const CameraStatus& status, Reporter& reporter)
{
    if (reporter.isJson()) return reporter.emit(toJson(status));
    for (const auto& line : textOf(status))
        std::printf("%s\n", line.c_str());
    return std::fflush(stdout) == 0;
}

int printOnce(Reporter& reporter)
{
    const auto status = askForStatus();
    if (!status) {
        reporter.error(status.problem().text);
        return kFailure;
    }
    return print(status.value(), reporter) ? 0 : kFailure;
}

// One line a second, until a signal, or until there is no camera or no reader any more.
int printAgainAndAgain(Reporter& reporter)
{
    const StopSignal stop;
    for (std::int64_t next = monotonicNs();; next += kIntervalNs) {
        if (const int result = printOnce(reporter); result != 0) return result;
        if (stop.waitUntil(next + kIntervalNs)) return 0;
    }
}

// Shows the page for a second. False: the program is to end, or the terminal has gone.
bool showPage(const std::vector<std::string>& lines, const StopSignal& stop, TerminalScreen& screen)
{
    for (;;) {
        if (!screen.write(pageOf(lines, static_cast<std::size_t>(screen.size().rows)))) return false;
        std::array<pollfd, 2> waiting = {
            {{stop.descriptor(), POLLIN, 0}, {screen.signalDescriptor(), POLLIN, 0}}};
        // A signal that nobody handles only makes the next page come sooner.
        ::poll(waiting.data(), waiting.size(), static_cast<int>(kIntervalNs / 1'000'000));
        if (waiting[0].revents) return false;
        if (!waiting[1].revents) return true;
        screen.handleSignals();
    }
}

// A camera that is not there may come: that is what somebody watches for, too.
int showLive(Reporter& reporter)
{
    const StopSignal stop;
    const auto screen = TerminalScreen::open(stop);
    if (!screen) {
        reporter.error(screen.problem().text);
        return kFailure;
    }
    std::vector<std::string> lines;
    do {
        const auto status = askForStatus();
        lines = status ? textOf(status.value()) : std::vector<std::string>{status.problem().text};
        lines.insert(lines.end(), {"", "Ctrl-C ends this."});
    } while (showPage(lines, stop, *screen.value()));
    return 0;
}

int tellStatus(const StatusOptions& options)
{
    Reporter reporter("pavo status", options.isJson);
    if (!options.isLive) return printOnce(reporter);
    if (options.isJson) return printAgainAndAgain(reporter);
    if (::isatty(STDOUT_FILENO) == 1) return showLive(reporter);
    reporter.error("--watch needs a terminal; with --json it writes one line a second anywhere");
    return kWrongUsage;
}

}  // namespace

void addStatusCommand(CLI::App& app, int& exitCode)
{
    auto options = std::make_shared<StatusOptions>();
    CLI::App* command = app.add_subcommand("status", "Say how the camera is, and who uses it");
    command->add_flag("--json", options->isJson, "Say it on standard output as a JSON object in one line");
    command->add_flag("--watch", options->isLive, "Say it again each second, until Ctrl-C");
    command->footer("Ends with 1 where no camera is running.");
    command->callback([options, &exitCode] { exitCode = tellStatus(*options); });
}

}  // namespace pavo::tools
