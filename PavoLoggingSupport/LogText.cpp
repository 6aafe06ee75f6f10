#include "PavoLoggingSupport/LogText.h"

#include "PavoLoggingSupport/DescriptiveText.h"
#include "PavoLoggingSupport/FormatScanner.h"
#include "PavoLoggingSupport/LogArguments.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <variant>

namespace pavo {

namespace {

void replaceAll(std::string& text, std::string_view what, std::string_view with)
{
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
}

// Width and precision of one conversion, with the arguments that they may come from read.
struct Layout {
    std::string flags;
    int width = 0;
    std::optional<int> precision;
};

// Like a text that stands in a format, an amount from an argument has a limit.
constexpr int kMaximumAmount = 4096;

std::optional<int> amountFrom(const FormatAmount& amount, LogArguments& arguments)
{
    if (amount.kind != FormatAmount::Kind::fromArgument) return amount.value;
    const auto value = arguments.nextInteger();
    if (!value) return std::nullopt;
    return std::clamp(static_cast<std::int32_t>(*value), -kMaximumAmount, kMaximumAmount);
}

std::optional<Layout> layoutFrom(const FormatConversion& conversion, LogArguments& arguments)
{
    Layout layout{std::string(conversion.flags), 0, std::nullopt};
    const auto width = amountFrom(conversion.width, arguments);
    if (!width) return std::nullopt;
    // A negative width means: to the left. A negative precision means: none.
    if (*width < 0) layout.flags += '-';
    layout.width = std::abs(*width);
    if (conversion.precision.kind == FormatAmount::Kind::absent) return layout;
    const auto precision = amountFrom(conversion.precision, arguments);
    if (!precision) return std::nullopt;
    if (*precision >= 0) layout.precision = precision;
    return layout;
}

template <typename Value>
std::string printed(const Layout& layout, std::string_view conversion, Value value)
{
    std::string format = "%" + layout.flags;
    if (layout.width > 0) format += std::to_string(layout.width);
    if (layout.precision) format += "." + std::to_string(*layout.precision);
    format += conversion;
    const int size = std::snprintf(nullptr, 0, format.c_str(), value);
    if (size <= 0) return {};
    std::string text(static_cast<std::size_t>(size) + 1, '\0');
    std::snprintf(text.data(), text.size(), format.c_str(), value);
    text.pop_back();
    return text;
}

bool startsCharacter(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

std::string padded(const Layout& layout, std::string_view value)
{
    std::size_t size = 0;
    std::size_t characters = 0;
    const auto limit = layout.precision ? static_cast<std::size_t>(*layout.precision) : value.size();
    for (; size < value.size(); ++size) {
        if (!startsCharacter(value[size])) continue;
        if (characters == limit) break;
        ++characters;
    }
    std::string text(value.substr(0, size));
    const auto width = static_cast<std::size_t>(layout.width);
    if (characters >= width) return text;
    const std::string padding(width - characters, ' ');
    return layout.flags.find('-') == std::string::npos ? padding + text : text + padding;
}

std::string integerText(const FormatConversion& conversion, const Layout& layout, std::uint64_t value)
{
    using Length = FormatConversion::Length;
    const bool isSigned = conversion.conversion == 'd' || conversion.conversion == 'i';
    const std::string kind = std::string("ll") + conversion.conversion;
    const auto print = [&](auto narrow) {
        using Wide = std::conditional_t<std::is_signed_v<decltype(narrow)>, long long, unsigned long long>;
        return printed(layout, kind, static_cast<Wide>(narrow));
    };
    switch (conversion.length) {
    case Length::char8:
        return isSigned ? print(static_cast<std::int8_t>(value)) : print(static_cast<std::uint8_t>(value));
    case Length::short16:
        return isSigned ? print(static_cast<std::int16_t>(value)) : print(static_cast<std::uint16_t>(value));
    case Length::none:
        return isSigned ? print(static_cast<std::int32_t>(value)) : print(static_cast<std::uint32_t>(value));
    case Length::long64:
        break;
    }
    return isSigned ? print(static_cast<std::int64_t>(value)) : print(value);
}

std::string describedText(const LogArgument& argument)
{
    if (const auto* text = std::get_if<std::string>(&argument.value())) return *text;
    const auto& object = std::get<cf::Ref<CFTypeRef>>(argument.value());
    return object ? objectText(object.get()) : "(null)";
}

std::optional<std::string> converted(const FormatConversion& conversion, LogArguments& arguments)
{
    const auto layout = layoutFrom(conversion, arguments);
    if (!layout) return std::nullopt;
    switch (conversion.conversion) {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
    case 'o': {
        const auto value = arguments.nextInteger();
        if (!value) return std::nullopt;
        return integerText(conversion, *layout, *value);
    }
    case 'c': {
        const auto value = arguments.nextInteger();
        if (!value) return std::nullopt;
        return padded(*layout, std::string(1, static_cast<char>(*value)));
    }
    case 'f':
    case 'F':
    case 'e':
    case 'E':
    case 'g':
    case 'G':
    case 'a':
    case 'A': {
        const auto value = arguments.nextNumber();
        if (!value) return std::nullopt;
        return printed(*layout, std::string(1, conversion.conversion), *value);
    }
    case 's': {
        const auto* value = arguments.nextText();
        if (!value) return std::nullopt;
        return padded(*layout, *value);
    }
    case '@': {
        const auto* value = arguments.nextObject();
        if (!value) return std::nullopt;
        return padded(*layout, describedText(*value));
    }
    default:
        return std::nullopt;
    }
}

}  // namespace

std::string logText(std::string_view format, std::span<const LogArgument> arguments)
{
    std::string plain(format);
    replaceAll(plain, "%{public}", "%");
    replaceAll(plain, "%{private}", "%");

    std::string text;
    LogArguments rest(arguments);
    FormatScanner scanner(plain);
    while (const auto conversion = scanner.next()) {
        text += conversion->literal;
        if (conversion->conversion == '%') {
            text += '%';
            continue;
        }
        const auto value = converted(*conversion, rest);
        text += value ? *value : std::string(conversion->text);
    }
    text += scanner.rest();
    return text;
}

}  // namespace pavo
