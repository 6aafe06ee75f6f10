#pragma once

#include <dispatch/base.h>
#include <dispatch/time.h>

// Null for a negative value. Letting go of a semaphore while its value is below the first one ends the
// process.
DISPATCH_EXPORT dispatch_semaphore_t dispatch_semaphore_create(intptr_t value);
// 0 when the semaphore was taken, not 0 when the time is up.
DISPATCH_EXPORT intptr_t dispatch_semaphore_wait(dispatch_semaphore_t semaphore, dispatch_time_t timeout);
// Not 0 when a waiting thread is woken.
DISPATCH_EXPORT intptr_t dispatch_semaphore_signal(dispatch_semaphore_t semaphore);
