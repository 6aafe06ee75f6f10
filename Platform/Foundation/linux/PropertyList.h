#pragma once

#include <optional>
#include <string>

namespace ns {

// The text under `key` in a property list file, XML or binary. None where the file is missing, too large, no
// property list, or has no text under that key.
std::optional<std::string> propertyListString(const std::string& path, const char* key);

}  // namespace ns
