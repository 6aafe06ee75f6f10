#include <mach/port.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "BootstrapNamespace.h"
#include "PortTable.h"

// No descriptor has a number like this, so nobody can close one by taking the task for a right.
mach_port_t mach_task_self_ = 0x7000'0000;

kern_return_t mach_port_allocate(ipc_space_t task, mach_port_right_t right, mach_port_name_t* name)
{
    if (task != mach_task_self()) return KERN_INVALID_TASK;
    if (right != MACH_PORT_RIGHT_RECEIVE) return KERN_INVALID_VALUE;
    if (!name) return KERN_INVALID_ARGUMENT;
    return pavo::mach::PortTable::shared().allocate(*name);
}

kern_return_t mach_port_deallocate(ipc_space_t task, mach_port_name_t name)
{
    if (task != mach_task_self()) return KERN_INVALID_TASK;
    if (!MACH_PORT_VALID(name)) return KERN_INVALID_NAME;
    // What bootstrap_parent gave counts as a right, too, so letting go of it is no mistake.
    if (pavo::mach::namespaceOf(name)) return KERN_SUCCESS;
    if (name > INT_MAX) return KERN_INVALID_NAME;
    if (pavo::mach::PortTable::shared().deallocate(name)) return KERN_SUCCESS;
    return close(static_cast<int>(name)) != 0 && errno == EBADF ? KERN_INVALID_NAME : KERN_SUCCESS;
}
