#pragma once

#include <os/log.h>

#include <string_view>

namespace pavo::oslog {

// Writes one message to the journal, or where there is none to standard error, as one line in one piece, so
// that the lines of several threads stay whole. PAVO_LOG=stderr in the environment passes the journal by.
void write(const os_log_s& log, os_log_type_t type, std::string_view message);

}  // namespace pavo::oslog
