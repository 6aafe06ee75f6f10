#pragma once

#include <objc/objc.h>

// How every message is sent. Callers cast it to the type of the method that they call.
#ifdef __cplusplus
extern "C"
#endif
    void
    objc_msgSend(void);
