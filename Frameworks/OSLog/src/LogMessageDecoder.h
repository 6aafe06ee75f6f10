#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace pavo::oslog {

// The text of a message: the format with the values from an argument buffer (see _os_log_impl) put in.
// Private values, and strings and objects that nobody marked public, become "<private>"; values that the
// buffer does not have, or has no whole of, become "<decode: missing data>". %m tells `errorNumber`.
//
// Errors: nothing in the buffer makes it read outside the buffer. The pointers in it must be good.
std::string decodeMessage(const char* format, std::span<const std::uint8_t> buffer, int errorNumber);

}  // namespace pavo::oslog
