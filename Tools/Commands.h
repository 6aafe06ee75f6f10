#pragma once

#include <CLI/CLI.hpp>

#include <string>

// The subcommands of pavo. Each function describes one to the parser; when the command line asks for it, it
// runs and leaves the process's exit code: 0 for success, 1 for failure, 2 for a wrong command line.
namespace pavo::tools {

inline constexpr int kFailure = 1;
inline constexpr int kWrongUsage = 2;

inline constexpr const char* kCameraSummary = "Be the camera, until Ctrl-C";

// Makes one of the parsers the check of an option.
template <typename Parse>
auto checkedBy(Parse parse)
{
    return [parse](const std::string& text) {
        const auto result = parse(text);
        return result ? std::string() : result.problem().text;
    };
}

void addCameraCommand(CLI::App& app, int& exitCode);
void addSendCommand(CLI::App& app, int& exitCode);
void addViewCommand(CLI::App& app, int& exitCode);
void addPreviewCommand(CLI::App& app, int& exitCode);
void addStatusCommand(CLI::App& app, int& exitCode);
void addDemoCommand(CLI::App& app, int& exitCode);
void addDoctorCommand(CLI::App& app, int& exitCode);

}  // namespace pavo::tools
