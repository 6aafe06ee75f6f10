#pragma once

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct os_log_s* os_log_t;

// For messages that belong to no subsystem, and for messages that nobody is to see.
extern struct os_log_s _os_log_default;
extern struct os_log_s _os_log_disabled;
#define OS_LOG_DEFAULT (&_os_log_default)
#define OS_LOG_DISABLED (&_os_log_disabled)

#ifdef __cplusplus
typedef enum : uint8_t {
#else
typedef uint8_t os_log_type_t;
enum {
#endif
    OS_LOG_TYPE_DEFAULT = 0x00,
    OS_LOG_TYPE_INFO = 0x01,
    OS_LOG_TYPE_DEBUG = 0x02,
    OS_LOG_TYPE_ERROR = 0x10,
    OS_LOG_TYPE_FAULT = 0x11,
#ifdef __cplusplus
} os_log_type_t;
#else
};
#endif

// The same pair always gives the same object, which is never freed.
os_log_t os_log_create(const char* subsystem, const char* category);

// On Linux every type but debug is enabled. OS_ACTIVITY_MODE=debug in the environment enables that one too.
bool os_log_type_enabled(os_log_t oslog, os_log_type_t type);

// Writes a message whose arguments are encoded in `buf`: a byte of summary flags, a byte with the number of
// items, then per item kind (high half) and privacy (low half), size, and the value as it lies in memory.
// The compiler writes this for a literal format; this function is for callers that encode themselves.
// A type that is not enabled is left out. `dso` names the caller's image and may be null on Linux.
void _os_log_impl(void* dso, os_log_t log, os_log_type_t type, const char* format, uint8_t* buf,
                  uint32_t size);

#ifdef __cplusplus
}
#endif
