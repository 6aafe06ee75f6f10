#include "PavoLoggingSupport/Logger.h"

#include "PavoLoggingSupport/GlobalLoggingConfig.h"
#include "PavoLoggingSupport/LogText.h"
#include "PavoLoggingSupport/OSLogBuffer.h"
#include "PavoLoggingSupport/PluginMarker.h"
#include "Platform/Support/Fatal.h"

#include <utility>

// Says which image a message comes from. The tool chain places it in every image.
extern "C" [[gnu::visibility("hidden")]] void* __dso_handle;

namespace pavo {

namespace {

// Deliberate, and observable: a message with more arguments reaches the system's log as its bare format.
constexpr std::size_t kMaximumArgumentCount = 5;

std::string subsystemOf(const ns::Bundle& bundle)
{
    return bundle.bundleIdentifier().value_or("default");
}

std::string_view lastPathComponentWithoutExtension(std::string_view path)
{
    const auto name = path.substr(path.find_last_of('/') + 1);
    const auto point = name.find_last_of('.');
    // A name that starts with its only point has no extension.
    return point == std::string_view::npos || point == 0 ? name : name.substr(0, point);
}

std::string withoutParameterList(std::string_view functionSignature)
{
    const auto first = functionSignature.find('(');
    const auto last = functionSignature.rfind(')');
    require(first != std::string_view::npos && last != std::string_view::npos && last > first,
            "A function signature has a parameter list");
    return std::string(functionSignature.substr(0, first)) + std::string(functionSignature.substr(last + 1));
}

}  // namespace

Logger::Logger(const ns::Bundle& bundle, std::string category)
    : osLog_(os_log_create(subsystemOf(bundle).c_str(), category.c_str())),
      category_(std::move(category))
{}

Logger::Logger(const ns::Class& type, std::optional<std::string> category)
    : Logger(ns::Bundle::bundleForClass(type), std::move(category).value_or(std::string(type.name())))
{}

Logger Logger::plugin(std::optional<std::string> category)
{
    return {pluginMarkerClass(), std::move(category)};
}

void Logger::log(LogFormat message, os_log_type_t type, std::span<const LogArgument> arguments) const
{
    const auto passedOn =
        arguments.size() <= kMaximumArgumentCount ? arguments : std::span<const LogArgument>();
    OSLogBuffer buffer(message.text(), passedOn);
    _os_log_impl(&__dso_handle, osLog_, type, message.text(), buffer.bytes().data(),
                 static_cast<std::uint32_t>(buffer.bytes().size()));

    const auto interceptor = GlobalLoggingConfig::shared().interceptor();
    if (!interceptor) return;
    interceptor->interceptLoggedMessage(logText(message.text(), arguments), category_, type);
}

bool Logger::isDebugEnabled() const
{
    return os_log_type_enabled(osLog_, OS_LOG_TYPE_DEBUG);
}

void Logger::writeDebug(const std::string& text) const
{
    write("%{public}@", OS_LOG_TYPE_DEBUG, text);
}

void Logger::trace(TraceSite site) const
{
    if (isDebugEnabled()) writeTrace(site.file, std::string(site.function) + "()", site.line);
}

void Logger::trace(ConstantText file, ConstantText function, unsigned line) const
{
    if (isDebugEnabled()) writeTrace(file.text(), function.text(), line);
}

void Logger::writeTrace(std::string_view file, std::string_view functionSignature, unsigned line) const
{
    write("%{public}@.%{public}@():%ld", OS_LOG_TYPE_DEBUG, lastPathComponentWithoutExtension(file),
          withoutParameterList(functionSignature), static_cast<std::int64_t>(line));
}

void Logger::notifyInterceptor(std::string_view message, os_log_type_t type) const
{
    if (const auto interceptor = GlobalLoggingConfig::shared().interceptor())
        interceptor->interceptLoggedMessage(std::string(message), category_, type);
}

}  // namespace pavo
