#pragma once

#include <CLI/CLI.hpp>

#include <vector>

namespace pavo::tools {

// Describes a command to the parser. When the command line asks for it, it runs and leaves the exit code.
using CommandAdder = void (*)(CLI::App& app, int& exitCode);

// What the command line asks for, done; the exit code of the process. A wrong command line gets one line on
// standard error: what is wrong, and where to read on.
int runCommandLine(int argc, char** argv, const std::vector<CommandAdder>& commands);

}  // namespace pavo::tools
