#pragma once

#include <charconv>
#include <string_view>

namespace pavo::tools {

// The text is a number from its first character to its last, in the C locale. Otherwise false.
template <typename Number>
bool parseWhole(std::string_view text, Number& value)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

}  // namespace pavo::tools
