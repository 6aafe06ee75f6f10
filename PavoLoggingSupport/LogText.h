#pragma once

#include "PavoLoggingSupport/LogArgument.h"

#include <span>
#include <string>
#include <string_view>

namespace pavo {

// The message as plain text: the privacy marks "%{public}" and "%{private}" become "%", then the format is
// filled in as NSString does it. "%@" takes an object's description; width and precision of texts count
// characters. A conversion whose argument is missing, or does not fit it, stays as it stands.
std::string logText(std::string_view format, std::span<const LogArgument> arguments);

}  // namespace pavo
