#pragma once

#include <mach/port.h>

#ifdef __cplusplus
extern "C" {
#endif

#define BOOTSTRAP_MAX_NAME_LEN 128

typedef char name_t[BOOTSTRAP_MAX_NAME_LEN];

#define BOOTSTRAP_SUCCESS 0
#define BOOTSTRAP_NOT_PRIVILEGED 1100
#define BOOTSTRAP_NAME_IN_USE 1101
#define BOOTSTRAP_UNKNOWN_SERVICE 1102
#define BOOTSTRAP_SERVICE_ACTIVE 1103
#define BOOTSTRAP_BAD_COUNT 1104
#define BOOTSTRAP_NO_MEMORY 1105
#define BOOTSTRAP_NO_CHILDREN 1106

// The namespace of this process. Its parent is the user's, whose parent is the system's.
extern mach_port_t bootstrap_port;

// The system's namespace is its own parent.
kern_return_t bootstrap_parent(mach_port_t bp, mach_port_t* parent_port);

// Publishes a receive right of this process under a name, until the right is deallocated or the process ends.
// BOOTSTRAP_SERVICE_ACTIVE while the name is somebody's; the name of one that died is taken over.
kern_return_t bootstrap_register(mach_port_t bp, name_t service_name, mach_port_t sp);

// Looks in the namespace, then in its parents. The port is a connected stream socket, blocking and
// close-on-exec, which the caller deallocates. BOOTSTRAP_UNKNOWN_SERVICE where nobody answers to the name.
kern_return_t bootstrap_look_up(mach_port_t bp, const name_t service_name, mach_port_t* sp);

// A text for each of the codes above, and one for all others.
const char* bootstrap_strerror(kern_return_t r);

#ifdef __cplusplus
}
#endif
