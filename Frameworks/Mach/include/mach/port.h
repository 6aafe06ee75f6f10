#pragma once

#include <mach/kern_return.h>

#ifdef __cplusplus
extern "C" {
#endif

// On Linux the name of a port is the number of a file descriptor, so a name means something in its own
// process only, and 0 is never one.
typedef unsigned int mach_port_t;
typedef mach_port_t mach_port_name_t;
typedef mach_port_t ipc_space_t;
typedef unsigned int mach_port_right_t;

#define MACH_PORT_NULL 0
#define MACH_PORT_DEAD ((mach_port_name_t)~0)
#define MACH_PORT_VALID(name) ((name) != MACH_PORT_NULL && (name) != MACH_PORT_DEAD)

#define MACH_PORT_RIGHT_SEND ((mach_port_right_t)0)
#define MACH_PORT_RIGHT_RECEIVE ((mach_port_right_t)1)

extern mach_port_t mach_task_self_;
#define mach_task_self() mach_task_self_

// Makes a receive right (the only right that can be made): a Unix stream socket that listens at a path of its
// own in the process's namespace. It is non-blocking and close-on-exec.
kern_return_t mach_port_allocate(ipc_space_t task, mach_port_right_t right, mach_port_name_t* name);
// Closes the descriptor. A receive right also loses its path and every name that it is registered under.
kern_return_t mach_port_deallocate(ipc_space_t task, mach_port_name_t name);

#ifdef __cplusplus
}
#endif
