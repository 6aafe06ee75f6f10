#include "PavoLoggingSupport/GlobalLoggingConfig.h"

#include <atomic>
#include <utility>

namespace pavo {

// The host may replace the interceptor while other threads log. The free functions are the form of an atomic
// shared pointer that every standard library in use has, though the newer ones wish for the other form.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

GlobalLoggingConfig& GlobalLoggingConfig::shared()
{
    // Never destroyed: threads may still log while the process ends.
    static GlobalLoggingConfig& instance = *new GlobalLoggingConfig;
    return instance;
}

std::shared_ptr<LogIntercepting> GlobalLoggingConfig::interceptor() const
{
    return std::atomic_load(&interceptor_);
}

void GlobalLoggingConfig::setInterceptor(std::shared_ptr<LogIntercepting> interceptor)
{
    std::atomic_store(&interceptor_, std::move(interceptor));
}

}  // namespace pavo
