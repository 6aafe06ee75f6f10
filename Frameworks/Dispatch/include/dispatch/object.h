#pragma once

#include <dispatch/base.h>

// What all objects have: references, a context, and for queues and sources a balanced suspension.

DISPATCH_EXPORT void dispatch_retain(dispatch_object_t object);
// Letting go of the last reference of a suspended object, or of a source that was never activated, ends the
// process.
DISPATCH_EXPORT void dispatch_release(dispatch_object_t object);

DISPATCH_EXPORT void dispatch_set_context(dispatch_object_t object, void* context);
DISPATCH_EXPORT void* dispatch_get_context(dispatch_object_t object);
// Called with the context, unless that is null, on the object's target queue, when the last reference is gone
// and nothing of the object runs any more.
DISPATCH_EXPORT void dispatch_set_finalizer_f(dispatch_object_t object, dispatch_function_t finalizer);

// Starts a source. Does nothing to an object that is active.
DISPATCH_EXPORT void dispatch_activate(dispatch_object_t object);
// What runs is finished, nothing further starts until as many resumes.
DISPATCH_EXPORT void dispatch_suspend(dispatch_object_t object);
// Undoes one suspend; activates a source that was never activated. One too many ends the process.
DISPATCH_EXPORT void dispatch_resume(dispatch_object_t object);
