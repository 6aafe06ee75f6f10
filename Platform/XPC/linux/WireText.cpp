#include "Platform/XPC/linux/WireText.h"

#include "Platform/XPC/linux/WireLimits.h"

#include <CoreFoundation/CoreFoundation.h>

#include <optional>

namespace xpc {

namespace {

// The bytes of the value's text or data; none where it has no form on the wire.
std::optional<std::size_t> variableSize(const Argument& argument)
{
    if (const auto* text = std::get_if<std::string>(&argument))
        return isWireText(*text) ? std::optional(text->size()) : std::nullopt;
    if (const auto* data = std::get_if<ns::Data>(&argument)) return data->size();
    if (const auto* data = std::get_if<std::optional<ns::Data>>(&argument))
        return *data ? (*data)->size() : 0;
    if (const auto* error = std::get_if<std::optional<ns::Error>>(&argument)) {
        const std::string_view domain = *error ? std::string_view((*error)->domain) : std::string_view();
        return isWireText(domain) ? std::optional(domain.size()) : std::nullopt;
    }
    return 0;
}

}  // namespace

bool isWireText(std::string_view text)
{
    if (text.find('\0') != std::string_view::npos) return false;
    const auto string =
        cf::adopt(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                          static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
    return static_cast<bool>(string);
}

bool canTravel(std::span<const Argument> arguments)
{
    std::size_t total = 0;
    for (const auto& argument : arguments) {
        const auto size = variableSize(argument);
        if (!size) return false;
        total += *size;
    }
    return total <= kMaxVariableBytes;
}

}  // namespace xpc
