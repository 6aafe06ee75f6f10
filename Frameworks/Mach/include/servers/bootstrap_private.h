#pragma once

#include <mach/port.h>
#include <servers/bootstrap.h>

#ifdef __cplusplus
extern "C" {
#endif

// What exists on Linux only, for the code that implements other frameworks and faces there.

// The system's namespace, in which the services of the administrator have their names: a look-up there finds
// no name of the user's, and nothing that anybody but the administrator put in place.
mach_port_t bootstrap_system_port(void);

// The name under which a receive right of this process was registered last. KERN_INVALID_NAME where it has
// none.
kern_return_t bootstrap_name_of(mach_port_t sp, name_t service_name);

#ifdef __cplusplus
}
#endif
