#include "PavoLoggingSupport/FormatScanner.h"

#include <algorithm>

namespace pavo {

namespace {

// Larger amounts serve nobody, and would only let a slip in a format take all memory.
constexpr int kMaximumAmount = 4096;

// The front of `text` that consists of `characters`, cut off from it.
std::string_view takeWhile(std::string_view& text, std::string_view characters)
{
    const auto taken = text.substr(0, std::min(text.find_first_not_of(characters), text.size()));
    text.remove_prefix(taken.size());
    return taken;
}

FormatAmount takeAmount(std::string_view& text)
{
    if (text.starts_with('*')) {
        text.remove_prefix(1);
        return {FormatAmount::Kind::fromArgument, 0};
    }
    const auto digits = takeWhile(text, "0123456789");
    if (digits.empty()) return {};
    int value = 0;
    for (const char digit : digits)
        value = std::min(value * 10 + (digit - '0'), kMaximumAmount);
    return {FormatAmount::Kind::constant, value};
}

FormatConversion::Length lengthFrom(std::string_view modifiers)
{
    if (modifiers == "hh") return FormatConversion::Length::char8;
    if (modifiers == "h") return FormatConversion::Length::short16;
    // All the wide ones have 64 bits on the systems served.
    return modifiers.empty() ? FormatConversion::Length::none : FormatConversion::Length::long64;
}

}  // namespace

std::optional<FormatConversion> FormatScanner::next()
{
    const auto start = rest_.find('%');
    if (start == std::string_view::npos) return std::nullopt;

    FormatConversion found;
    found.literal = rest_.substr(0, start);
    const auto directive = rest_.substr(start);
    auto text = directive.substr(1);
    if (text.starts_with('{')) {
        const auto end = std::min(text.find('}'), text.size());
        found.annotation = text.substr(1, end - 1);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    found.flags = takeWhile(text, "-+ #0'");
    found.width = takeAmount(text);
    if (text.starts_with('.')) {
        text.remove_prefix(1);
        found.precision = takeAmount(text);
        // A point alone means none.
        if (found.precision.kind == FormatAmount::Kind::absent)
            found.precision = {FormatAmount::Kind::constant, 0};
    }
    found.length = lengthFrom(takeWhile(text, "hlLqjzt"));
    if (!text.empty()) {
        found.conversion = text.front();
        text.remove_prefix(1);
    }
    found.text = directive.substr(0, directive.size() - text.size());
    rest_ = text;
    return found;
}

}  // namespace pavo
