#pragma once

#include "PavoLoggingSupport/ConstantText.h"
#include "PavoLoggingSupport/DescriptiveText.h"
#include "PavoLoggingSupport/DumpText.h"
#include "PavoLoggingSupport/LogArgument.h"
#include "Platform/Foundation/NSBundle.h"

#include <os/log.h>

#include <array>
#include <concepts>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace pavo {

// Where a trace() call stands.
struct TraceSite {
    const char* file;
    const char* function;  // plain name, without parameters
    unsigned line;

    static constexpr TraceSite current(const char* file = __builtin_FILE(),
                                       const char* function = __builtin_FUNCTION(),
                                       unsigned line = __builtin_LINE())
    {
        return {file, function, line};
    }
};

// Writes messages of one subsystem and category to the system's log, and hands them, formatted, to the
// interceptor of GlobalLoggingConfig where there is one. A cheap value.
//
// Threads: safe from any thread.
// Errors:  none; the log never fails a caller.
class Logger final {
public:
    // The subsystem is the bundle's identifier, or "default".
    Logger(const ns::Bundle& bundle, std::string category);
    // For the bundle that defines `type`; the category defaults to the class's name.
    Logger(const ns::Class& type, std::optional<std::string> category);
    // For the bundle that holds the logging module; the category defaults to "_PluginMarker".
    static Logger plugin(std::optional<std::string> category = {});

    os_log_t osLog() const { return osLog_; }
    const std::optional<std::string>& category() const { return category_; }

    template <std::convertible_to<LogArgument>... Arguments>
    void log(LogFormat message, const Arguments&... arguments) const
    {
        write(message, OS_LOG_TYPE_DEFAULT, arguments...);
    }
    template <std::convertible_to<LogArgument>... Arguments>
    void info(LogFormat message, const Arguments&... arguments) const
    {
        write(message, OS_LOG_TYPE_INFO, arguments...);
    }
    template <std::convertible_to<LogArgument>... Arguments>
    void error(LogFormat message, const Arguments&... arguments) const
    {
        write(message, OS_LOG_TYPE_ERROR, arguments...);
    }
    template <std::convertible_to<LogArgument>... Arguments>
    void fault(LogFormat message, const Arguments&... arguments) const
    {
        write(message, OS_LOG_TYPE_FAULT, arguments...);
    }
    // Silent on purpose: debug output comes from print, dump and trace only.
    template <std::convertible_to<LogArgument>... Arguments>
    void debug(LogFormat, const Arguments&...) const
    {}
    // Where all the others end. The system's log gets at most five arguments: with six or more it gets the
    // bare format. The interceptor gets them all.
    void log(LogFormat message, os_log_type_t type, std::span<const LogArgument> arguments) const;

    // Logs the value's descriptive text at debug. `value` is called only if debug is enabled.
    template <std::invocable Value>
    void print(const Value& value) const
    {
        if (isDebugEnabled()) writeDebug(descriptiveText(value()));
    }
    // Logs the value's structure at debug. `value` is called only if debug is enabled.
    template <std::invocable Value>
    void dump(const Value& value) const
    {
        if (isDebugEnabled()) writeDebug(dumpText(value()));
    }

    // Logs "<file>.<function>():<line>" of the caller at debug, if debug is enabled.
    void trace(TraceSite site = TraceSite::current()) const;
    // The same for a site that the caller names. `function` is a signature, whose parameter list is left out;
    // one without parentheses ends the process.
    void trace(ConstantText file, ConstantText function, unsigned line) const;

    // Hands the interceptor an already formatted message; writes nothing to the system's log.
    void notifyInterceptor(std::string_view message, os_log_type_t type) const;

private:
    template <typename... Arguments>
    void write(LogFormat message, os_log_type_t type, const Arguments&... arguments) const
    {
        const std::array<LogArgument, sizeof...(Arguments)> list{LogArgument(arguments)...};
        log(message, type, std::span<const LogArgument>(list));
    }
    bool isDebugEnabled() const;
    void writeDebug(const std::string& text) const;
    void writeTrace(std::string_view file, std::string_view functionSignature, unsigned line) const;

    os_log_t osLog_;
    std::optional<std::string> category_;
};

}  // namespace pavo
