#pragma once

#include <CoreMedia/CMTime.h>

CF_EXTERN_C_BEGIN

typedef struct OpaqueCMClock* CMClockRef;

CFTypeID CMClockGetTypeID(void);

// The clock that the whole host shares; one object, which lives as long as the process. On Linux the system's
// monotonic clock, in nanoseconds.
CMClockRef CMClockGetHostTimeClock(void);
// Invalid for a null clock.
CMTime CMClockGetTime(CMClockRef clock);

CF_EXTERN_C_END
