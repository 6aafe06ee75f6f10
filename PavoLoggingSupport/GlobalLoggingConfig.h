#pragma once

#include "PavoLoggingSupport/LogIntercepting.h"

#include <memory>

namespace pavo {

// What all loggers of the process share: the interceptor, where a host has set one.
//
// Ownership: holds the interceptor strongly; setting another one, or none, lets go of it.
// Threads:   safe from any thread. A reader keeps its own reference, so an interceptor that is replaced while
//            a message is on its way to it still lives until that call returns.
class GlobalLoggingConfig final {
public:
    // Made on first use, exactly once, and kept for the process's lifetime.
    static GlobalLoggingConfig& shared();

    GlobalLoggingConfig(const GlobalLoggingConfig&) = delete;
    GlobalLoggingConfig& operator=(const GlobalLoggingConfig&) = delete;

    std::shared_ptr<LogIntercepting> interceptor() const;
    void setInterceptor(std::shared_ptr<LogIntercepting> interceptor);

private:
    GlobalLoggingConfig() = default;

    std::shared_ptr<LogIntercepting> interceptor_;
};

}  // namespace pavo
