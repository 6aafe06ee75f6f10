#pragma once

#include <string>

namespace pavo::servicemanagement {

// The folder of the bundle that the running program lies in, else the program's own folder. Empty where the
// program's file is gone.
std::string mainBundlePath();

}  // namespace pavo::servicemanagement
