#pragma once

#include <dispatch/base.h>
#include <dispatch/time.h>

typedef const struct dispatch_source_type_s* dispatch_source_type_t;
DISPATCH_EXPORT const struct dispatch_source_type_s _dispatch_source_type_timer;

#define DISPATCH_SOURCE_TYPE_TIMER (&_dispatch_source_type_timer)
#define DISPATCH_TIMER_STRICT 0x1

// A timer source, inactive at first. `handle` is 0, `mask` 0 or DISPATCH_TIMER_STRICT; null for anything
// else. Without a queue the handler runs on the global queue of default quality of service.
DISPATCH_EXPORT dispatch_source_t dispatch_source_create(dispatch_source_type_t type, uintptr_t handle,
                                                         uintptr_t mask, dispatch_queue_t queue);
// First fire at `start`, then every `interval` nanoseconds from there on; DISPATCH_TIME_FOREVER as interval
// fires once. Fires that are missed, because the handler still runs or the source is suspended, become one.
DISPATCH_EXPORT void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start,
                                               uint64_t interval, uint64_t leeway);
// Called with the source's context, never twice at the same time. Null: fires do nothing.
DISPATCH_EXPORT void dispatch_source_set_event_handler_f(dispatch_source_t source,
                                                         dispatch_function_t handler);
// No fire starts after this; one that runs is finished.
DISPATCH_EXPORT void dispatch_source_cancel(dispatch_source_t source);
// Not 0 when the source is cancelled.
DISPATCH_EXPORT intptr_t dispatch_source_testcancel(dispatch_source_t source);
