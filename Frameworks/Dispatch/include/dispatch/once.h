#pragma once

#include <dispatch/base.h>

typedef intptr_t dispatch_once_t;

// Calls the function the first time only, and returns when that call is done. The predicate is a static
// variable, zero at first.
DISPATCH_EXPORT void dispatch_once_f(dispatch_once_t* predicate, void* context, dispatch_function_t function);
