#pragma once

#include <os/log_printf.h>

namespace cmio {

// Where this face says what happens to it.
inline os_log_t faceLog()
{
    static const os_log_t log = os_log_create("com.tarnwell.macos.cam.platform", "CoreMediaIO");
    return log;
}

}  // namespace cmio
