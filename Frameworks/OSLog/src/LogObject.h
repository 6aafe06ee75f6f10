#pragma once

#include <os/log.h>

// What an os_log_t points to. The texts live as long as the process.
struct os_log_s {
    const char* subsystem;
    const char* category;
    bool isDisabled;
};
