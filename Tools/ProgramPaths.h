#pragma once

#include <string>

namespace pavo::tools {

// The file of the running program.
std::string programPath();
// The bundle beside the running program.
std::string defaultBundlePath();

}  // namespace pavo::tools
