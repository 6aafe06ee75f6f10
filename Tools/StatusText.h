#pragma once

#include "Tools/CameraStatus.h"

#include <string>
#include <vector>

namespace pavo::tools {

// A camera's status for people, one line each. What others call themselves cannot change the terminal.
std::vector<std::string> textOf(const CameraStatus& status);

}  // namespace pavo::tools
