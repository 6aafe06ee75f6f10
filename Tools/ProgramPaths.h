#pragma once

#include <string>

namespace pavo::tools {

// The file of the running program.
std::string programPath();
// The bundle of the running program: beside it, as in a build folder, or where an installation has it.
std::string defaultBundlePath();
// The program that is the camera, beside the bundle.
std::string cameraProgramPath();

}  // namespace pavo::tools
