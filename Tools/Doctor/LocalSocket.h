#pragma once

#include "Platform/Support/UniqueFd.h"

#include <string>

namespace pavo::tools {

// A connection to the socket that a path leads to, made without waiting. Invalid, with errno set, where
// there is none: EAGAIN where somebody is there but too busy to take one more.
UniqueFd connectTo(const std::string& path);

}  // namespace pavo::tools
