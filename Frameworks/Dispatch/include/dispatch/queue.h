#pragma once

#include <dispatch/base.h>
#include <dispatch/time.h>
#include <stddef.h>
#include <sys/qos.h>

#define DISPATCH_QUEUE_SERIAL NULL
#define DISPATCH_CURRENT_QUEUE_LABEL NULL

// A queue that runs one item at a time, in order of arrival. The label is copied.
DISPATCH_EXPORT dispatch_queue_t dispatch_queue_create(const char* label, dispatch_queue_attr_t attribute);
// Attributes are constants: there is nothing to release. Null (no attribute) for an unknown class, and for a
// relative priority outside -15...0.
DISPATCH_EXPORT dispatch_queue_attr_t dispatch_queue_attr_make_with_qos_class(dispatch_queue_attr_t attribute,
                                                                              qos_class_t qosClass,
                                                                              int relativePriority);
// The shared concurrent queue of a quality of service class; `flags` is 0. Null for an unknown class.
DISPATCH_EXPORT dispatch_queue_t dispatch_get_global_queue(intptr_t identifier, uintptr_t flags);
DISPATCH_EXPORT const char* dispatch_queue_get_label(dispatch_queue_t queue);

DISPATCH_EXPORT void dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work);
// Returns when the work is done. From an item of the same serial queue it ends the process, because it could
// never return.
DISPATCH_EXPORT void dispatch_sync_f(dispatch_queue_t queue, void* context, dispatch_function_t work);
DISPATCH_EXPORT void dispatch_after_f(dispatch_time_t when, dispatch_queue_t queue, void* context,
                                      dispatch_function_t work);

// End the process when the caller does not run on the queue, or when it does.
DISPATCH_EXPORT void dispatch_assert_queue(dispatch_queue_t queue) DISPATCH_ALIAS_V2(dispatch_assert_queue);
DISPATCH_EXPORT void dispatch_assert_queue_not(dispatch_queue_t queue)
    DISPATCH_ALIAS_V2(dispatch_assert_queue_not);

// Gives the main thread up for good, while queues and sources go on.
DISPATCH_EXPORT DISPATCH_NORETURN void dispatch_main(void);
