#pragma once

#include <mach/kern_return.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct mach_timebase_info {
    uint32_t numer;
    uint32_t denom;
};
typedef struct mach_timebase_info* mach_timebase_info_t;
typedef struct mach_timebase_info mach_timebase_info_data_t;

// The monotonic clock in ticks: one tick is numer/denom nanoseconds. It stands still while the system sleeps.
uint64_t mach_absolute_time(void);
// The function has the name of its structure, which a C++ compiler may take for a mistake.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
kern_return_t mach_timebase_info(mach_timebase_info_t info);
#pragma GCC diagnostic pop

#ifdef __cplusplus
}
#endif
