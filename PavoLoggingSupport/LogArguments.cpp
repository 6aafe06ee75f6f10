#include "PavoLoggingSupport/LogArguments.h"

#include <concepts>
#include <type_traits>

namespace pavo {

const LogArgument* LogArguments::next()
{
    if (rest_.empty()) return nullptr;
    const auto* argument = &rest_.front();
    rest_ = rest_.subspan(1);
    return argument;
}

std::optional<std::uint64_t> LogArguments::nextInteger()
{
    const auto* argument = next();
    if (!argument) return std::nullopt;
    return std::visit(
        [](const auto& value) -> std::optional<std::uint64_t> {
            // A negative value widens with its sign.
            if constexpr (std::integral<std::remove_cvref_t<decltype(value)>>)
                return static_cast<std::uint64_t>(value);
            else
                return std::nullopt;
        },
        argument->value());
}

std::optional<double> LogArguments::nextNumber()
{
    const auto* argument = next();
    const auto* number = argument ? std::get_if<double>(&argument->value()) : nullptr;
    return number ? std::optional(*number) : std::nullopt;
}

const LogArgument* LogArguments::nextObject()
{
    const auto* argument = next();
    if (!argument) return nullptr;
    const bool isObject = std::holds_alternative<std::string>(argument->value()) ||
                          std::holds_alternative<cf::Ref<CFTypeRef>>(argument->value());
    return isObject ? argument : nullptr;
}

const std::string* LogArguments::nextText()
{
    const auto* argument = next();
    return argument ? std::get_if<std::string>(&argument->value()) : nullptr;
}

}  // namespace pavo
