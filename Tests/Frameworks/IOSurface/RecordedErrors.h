#pragma once

#include <string>
#include <vector>

namespace pavo::test {

// The error lines that were logged since the last call.
std::vector<std::string> takeErrors();

}  // namespace pavo::test
