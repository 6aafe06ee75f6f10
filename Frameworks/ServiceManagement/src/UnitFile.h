#pragma once

#include <string>
#include <string_view>

namespace pavo::servicemanagement {

// The program that a service's unit starts: the first word of the one ExecStart= of its [Service] section.
// Empty where there is none or more than one, and where the word is no plain path (but has a prefix,
// a specifier or an escape).
std::string programOfUnit(std::string_view content);

}  // namespace pavo::servicemanagement
