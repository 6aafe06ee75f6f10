#include <os/log.h>
#include <os/log_printf.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "LogMessageDecoder.h"
#include "LogObject.h"
#include "LogOutput.h"

namespace {

// Logging never changes what its caller sees in errno.
class KeptErrno {
public:
    KeptErrno() = default;
    KeptErrno(const KeptErrno&) = delete;
    KeptErrno& operator=(const KeptErrno&) = delete;
    ~KeptErrno() { errno = value_; }

    int value() const { return value_; }

private:
    const int value_ = errno;
};

struct LogTable {
    std::mutex mutex;
    std::map<std::pair<std::string, std::string>, os_log_s> logs;  // nodes never move
};

}  // namespace

constinit os_log_s _os_log_default{"", "", false};
constinit os_log_s _os_log_disabled{"", "", true};

os_log_t os_log_create(const char* subsystem, const char* category)
{
    static auto& table = *new LogTable;
    const std::lock_guard lock(table.mutex);
    const auto [position, isNew] =
        table.logs.try_emplace({subsystem ? subsystem : "", category ? category : ""}, os_log_s{});
    auto& [names, log] = *position;
    if (isNew) log = {names.first.c_str(), names.second.c_str(), false};
    return &log;
}

bool os_log_type_enabled(os_log_t oslog, os_log_type_t type)
{
    if (oslog->isDisabled) return false;
    if (type != OS_LOG_TYPE_DEBUG) return true;
    const char* const mode = secure_getenv("OS_ACTIVITY_MODE");
    return mode && std::string_view(mode) == "debug";
}

void _os_log_impl(void*, os_log_t log, os_log_type_t type, const char* format, uint8_t* buf, uint32_t size)
{
    const KeptErrno kept;
    if (!os_log_type_enabled(log, type)) return;
    pavo::oslog::write(*log, type, pavo::oslog::decodeMessage(format, {buf, size}, kept.value()));
}

void os_log_printf(os_log_t log, os_log_type_t type, const char* format, ...)
{
    const KeptErrno kept;
    if (!os_log_type_enabled(log, type)) return;
    va_list arguments;
    va_list again;
    va_start(arguments, format);
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    errno = kept.value();
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    pavo::oslog::write(*log, type, text);
}
