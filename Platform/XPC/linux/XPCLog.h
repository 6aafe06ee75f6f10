#pragma once

#include <os/log_printf.h>

namespace xpc {

// The log of this face.
os_log_t log();

}  // namespace xpc
