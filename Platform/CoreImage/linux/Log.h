#pragma once

#include <os/log.h>

namespace ci {

inline os_log_t platformLog()
{
    static os_log_t log = os_log_create("com.tarnwell.macos.cam.platform", "CoreImage");
    return log;
}

}  // namespace ci
