#include <mach/mach_time.h>

#include <ctime>

uint64_t mach_absolute_time(void)
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

kern_return_t mach_timebase_info(mach_timebase_info_t info)
{
    if (!info) return KERN_INVALID_ARGUMENT;
    *info = {1, 1};
    return KERN_SUCCESS;
}
