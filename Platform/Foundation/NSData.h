#pragma once

#include <cstddef>
#include <vector>

namespace ns {

// A run of bytes without a meaning of its own.
using Data = std::vector<std::byte>;

}  // namespace ns
