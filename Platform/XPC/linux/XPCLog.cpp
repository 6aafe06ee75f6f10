#include "Platform/XPC/linux/XPCLog.h"

namespace xpc {

os_log_t log()
{
    static const os_log_t instance = os_log_create("com.tarnwell.macos.cam.platform", "XPC");
    return instance;
}

}  // namespace xpc
