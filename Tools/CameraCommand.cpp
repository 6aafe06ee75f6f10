#include "Tools/Commands.h"
#include "Tools/ProgramPaths.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace pavo::tools {
namespace {

// Becomes the program that is the camera. Returns only where that is not possible.
int becomeCamera(const std::vector<std::string>& arguments)
{
    const std::string program = cameraProgramPath();
    std::vector<std::string> words = {"pavo", "camera"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    ::execv(program.c_str(), pointers.data());
    std::fprintf(stderr, "pavo camera: cannot start %s: %s\n", program.c_str(), std::strerror(errno));
    return kFailure;
}

}  // namespace

void addCameraCommand(CLI::App& app, int& exitCode)
{
    CLI::App* command = app.add_subcommand("camera", kCameraSummary);
    // It knows its own options, and can explain them.
    command->set_help_flag();
    command->allow_extras();
    command->callback([command, &exitCode] { exitCode = becomeCamera(command->remaining()); });
}

}  // namespace pavo::tools
