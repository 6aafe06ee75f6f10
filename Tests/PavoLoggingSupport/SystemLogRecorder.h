#pragma once

#include <os/log.h>

#include <cstdint>
#include <string>
#include <vector>

namespace pavo::test {

struct SystemLogCall {
    bool hasImage;
    os_log_t log;
    os_log_type_t type;
    const char* format;
    std::vector<std::uint8_t> bytes;
};

// Records what reaches the system's log from its construction on. The calls go on to the real log.
class SystemLogRecorder final {
public:
    SystemLogRecorder();
    ~SystemLogRecorder();
    SystemLogRecorder(const SystemLogRecorder&) = delete;
    SystemLogRecorder& operator=(const SystemLogRecorder&) = delete;

    std::vector<SystemLogCall> calls() const;
};

// Switches debug messages on while it lives.
class DebugMode final {
public:
    DebugMode();
    ~DebugMode();
    DebugMode(const DebugMode&) = delete;
    DebugMode& operator=(const DebugMode&) = delete;
};

}  // namespace pavo::test
