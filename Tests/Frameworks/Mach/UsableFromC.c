// What C++ code cannot show: that the declarations are C.
#include <mach/mach_time.h>
#include <servers/bootstrap.h>

kern_return_t useFromC(void);

kern_return_t useFromC(void)
{
    mach_timebase_info_data_t timebase;
    mach_port_t parent = MACH_PORT_NULL;
    const kern_return_t status = bootstrap_parent(bootstrap_port, &parent);
    return mach_absolute_time() > 0 && MACH_PORT_VALID(parent) ? mach_timebase_info(&timebase) : status;
}
