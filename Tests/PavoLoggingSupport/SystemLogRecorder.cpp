#include "Tests/PavoLoggingSupport/SystemLogRecorder.h"

#include <cstdlib>
#include <mutex>

namespace {

std::mutex mutex;
bool isRecording = false;
std::vector<pavo::test::SystemLogCall>& recorded()
{
    static auto& calls = *new std::vector<pavo::test::SystemLogCall>;
    return calls;
}

}  // namespace

extern "C" {

void __real__os_log_impl(void* dso, os_log_t log, os_log_type_t type, const char* format, uint8_t* buf,
                         uint32_t size);

void __wrap__os_log_impl(void* dso, os_log_t log, os_log_type_t type, const char* format, uint8_t* buf,
                         uint32_t size)
{
    {
        const std::lock_guard lock(mutex);
        if (isRecording) recorded().push_back({dso != nullptr, log, type, format, {buf, buf + size}});
    }
    __real__os_log_impl(dso, log, type, format, buf, size);
}
}

namespace pavo::test {

SystemLogRecorder::SystemLogRecorder()
{
    const std::lock_guard lock(mutex);
    isRecording = true;
    recorded().clear();
}

SystemLogRecorder::~SystemLogRecorder()
{
    const std::lock_guard lock(mutex);
    isRecording = false;
}

std::vector<SystemLogCall> SystemLogRecorder::calls() const
{
    const std::lock_guard lock(mutex);
    return recorded();
}

DebugMode::DebugMode()
{
    ::setenv("OS_ACTIVITY_MODE", "debug", 1);
}

DebugMode::~DebugMode()
{
    ::unsetenv("OS_ACTIVITY_MODE");
}

}  // namespace pavo::test
