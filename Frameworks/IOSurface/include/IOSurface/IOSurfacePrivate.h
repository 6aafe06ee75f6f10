#pragma once

#include <IOSurface/IOSurfaceRef.h>

CF_EXTERN_C_BEGIN

// What exists on Linux only, for the code that implements other frameworks and faces there.

// True for a surface that IOSurfaceCreate() of this process made. Only of such a surface is it known that its
// content changes under a lock: another process may write without one.
Boolean IOSurfaceIsLocal(IOSurfaceRef buffer);

CF_EXTERN_C_END
