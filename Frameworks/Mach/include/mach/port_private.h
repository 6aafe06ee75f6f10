#pragma once

#include <mach/port.h>

#ifdef __cplusplus
extern "C" {
#endif

// What exists on Linux only, for the code that implements other frameworks and faces there.

// Connects to a receive right of this process, without waiting. The connection is a stream socket, blocking
// and close-on-exec, which the caller deallocates. KERN_FAILURE where the right takes no more connections.
kern_return_t mach_port_connect(mach_port_name_t receive, mach_port_name_t* connection);

#ifdef __cplusplus
}
#endif
