#pragma once

#include <os/log.h>

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

// Writes a message with a printf format, for the code that exists on Linux only: the compilers here do not
// all encode os_log arguments. Everything in it is public. errno is kept, and %m tells it.
__attribute__((format(printf, 3, 4))) void os_log_printf(os_log_t log, os_log_type_t type, const char* format,
                                                         ...);

// Whether messages go to standard error where there is no journal, as they do at first. A library in somebody
// else's program leaves that stream to the program. PAVO_LOG=stderr goes before it.
void os_log_set_standard_error_fallback(bool isWanted);

#ifdef __cplusplus
}
#endif
