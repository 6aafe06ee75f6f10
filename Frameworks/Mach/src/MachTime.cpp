#include <mach/mach_time.h>
