#pragma once

#include "PavoLoggingSupport/DescriptiveText.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <tuple>

namespace pavo {

namespace detail {

// One line for the value itself, then one for each of its parts, two columns further in. `label` names the
// value inside its parent.
template <typename T>
void dumpInto(std::string& text, const T& value, const std::string& label, std::size_t indent);

inline void dumpLine(std::string& text, std::size_t indent, bool hasParts, std::string_view content)
{
    if (!text.empty()) text += '\n';
    text.append(indent, ' ');
    text += hasParts ? "▿ " : "- ";
    text += content;
}

inline std::string countText(std::size_t count, std::string_view noun)
{
    return std::to_string(count) + " " + std::string(noun) + (count == 1 ? "" : "s");
}

template <typename Pair>
void dumpEntry(std::string& text, const Pair& entry, std::size_t indent)
{
    dumpLine(text, indent, true, "(2 elements)");
    dumpInto(text, entry.first, "key: ", indent + 2);
    dumpInto(text, entry.second, "value: ", indent + 2);
}

template <typename T>
void dumpSequence(std::string& text, const T& value, const std::string& label, std::size_t indent)
{
    const std::size_t count = value.size();
    dumpLine(text, indent, count != 0, label + countText(count, Map<T> ? "key/value pair" : "element"));
    for (const auto& element : value) {
        if constexpr (Map<T>)
            dumpEntry(text, element, indent + 2);
        else
            dumpInto(text, element, "", indent + 2);
    }
}

template <typename T>
void dumpTuple(std::string& text, const T& value, const std::string& label, std::size_t indent)
{
    dumpLine(text, indent, std::tuple_size_v<T> != 0,
             label + "(" + countText(std::tuple_size_v<T>, "element") + ")");
    std::size_t index = 0;
    std::apply(
        [&](const auto&... elements) {
            (dumpInto(text, elements, "." + std::to_string(index++) + ": ", indent + 2), ...);
        },
        value);
}

template <typename T>
void dumpInto(std::string& text, const T& value, const std::string& label, std::size_t indent)
{
    if constexpr (SelfDescribing<T> || IsRef<T>::value) {
        dumpLine(text, indent, false, label + descriptiveText(value));
    } else if constexpr (Optional<T>) {
        dumpLine(text, indent, value.has_value(), label + nestedText(value));
        if (value) dumpInto(text, *value, "some: ", indent + 2);
    } else if constexpr (Sequence<T>) {
        dumpSequence(text, value, label, indent);
    } else if constexpr (Tuple<T>) {
        dumpTuple(text, value, label, indent);
    } else {
        dumpLine(text, indent, false, label + nestedText(value));
    }
}

}  // namespace detail

// The structure of any value, one line for each part, to any depth. Takes the same types as descriptiveText.
template <typename T>
std::string dumpText(const T& value)
{
    std::string text;
    detail::dumpInto(text, value, "", 0);
    return text;
}

}  // namespace pavo
