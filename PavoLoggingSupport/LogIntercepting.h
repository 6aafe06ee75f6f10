#pragma once

#include <os/log.h>

#include <optional>
#include <string>

namespace pavo {

// Gets a copy of every message that is logged, already formatted, so that a host can mirror the log
// elsewhere.
//
// Threads: called on the thread that logs, inside the call that logs; from any thread, several at once.
class LogIntercepting {
public:
    virtual void interceptLoggedMessage(const std::string& message,
                                        const std::optional<std::string>& category, os_log_type_t type) = 0;

    LogIntercepting() = default;
    LogIntercepting(const LogIntercepting&) = delete;
    LogIntercepting& operator=(const LogIntercepting&) = delete;

protected:
    // Shared ownership keeps the destructor of the implementation, so nobody deletes through the interface.
    ~LogIntercepting() = default;
};

}  // namespace pavo
