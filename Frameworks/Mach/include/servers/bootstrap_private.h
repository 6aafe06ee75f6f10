#pragma once

#include <mach/port.h>

#ifdef __cplusplus
extern "C" {
#endif

// What exists on Linux only, for the code that implements other frameworks and faces there.

// The system's namespace, in which the services of the administrator have their names: a look-up there finds
// no name of the user's, and nothing that anybody but the administrator put in place.
mach_port_t bootstrap_system_port(void);

#ifdef __cplusplus
}
#endif
