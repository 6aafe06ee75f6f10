#pragma once

#include "Platform/Support/Ref.h"

#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace pavo {

// The shortest text that reads back as the same number, with at least one decimal: "1920.0", "0.1", "1e+16".
std::string floatingPointText(double value);
// The text in quotation marks, with escapes, as it stands inside other values.
std::string quotedText(std::string_view value);
// What the object says of itself; "nil" for none.
std::string objectText(CFTypeRef object);

namespace detail {

template <typename T>
concept Text = std::convertible_to<const T&, std::string_view>;
template <typename T>
concept SelfDescribing = requires(const T& value) {
    { describe(value) } -> std::convertible_to<std::string>;
};
template <typename T>
concept Optional = requires(const T& value) {
    { value.has_value() } -> std::same_as<bool>;
    *value;
};
template <typename T>
concept Sequence = !Text<T> && requires(const T& value) {
    value.begin();
    value.end();
    { value.size() } -> std::convertible_to<std::size_t>;
};
template <typename T>
concept Map = Sequence<T> && requires { typename T::mapped_type; };
template <typename T>
concept Tuple = !Sequence<T> && requires { std::tuple_size<T>::value; };

template <typename T>
struct IsRef : std::false_type {};
template <typename Object>
struct IsRef<cf::Ref<Object>> : std::true_type {};

}  // namespace detail

template <typename T>
std::string descriptiveText(const T& value);

// The same as it stands inside another value: texts are quoted there.
template <typename T>
std::string nestedText(const T& value)
{
    if constexpr (detail::Text<T>)
        return quotedText(value);
    else
        return descriptiveText(value);
}

// Any value as text for people: numbers and texts as they are, "nil" or "Optional(x)", tuples as "(a, b)",
// sequences as "[a, b]", maps as "[k: v]". A type of its own takes part by a function
// `std::string describe(const T&)` in its namespace; other types do not compile.
template <typename T>
std::string descriptiveText(const T& value)
{
    if constexpr (detail::SelfDescribing<T>)
        return describe(value);
    else if constexpr (detail::Text<T>)
        return std::string(std::string_view(value));
    else if constexpr (std::same_as<T, bool>)
        return value ? "true" : "false";
    else if constexpr (std::integral<T>)
        return std::to_string(value);
    else if constexpr (std::floating_point<T>)
        return floatingPointText(static_cast<double>(value));
    else if constexpr (detail::IsRef<T>::value)
        return objectText(value.get());
    else if constexpr (detail::Optional<T>)
        return value ? "Optional(" + nestedText(*value) + ")" : "nil";
    else if constexpr (detail::Sequence<T>) {
        std::string text;
        for (const auto& element : value) {
            if (!text.empty()) text += ", ";
            if constexpr (detail::Map<T>)
                text += nestedText(element.first) + ": " + nestedText(element.second);
            else
                text += nestedText(element);
        }
        if (detail::Map<T> && text.empty()) return "[:]";
        return "[" + text + "]";
    } else {
        static_assert(detail::Tuple<T>, "declare std::string describe(const T&) beside the type");
        std::string text;
        std::apply(
            [&text](const auto&... elements) {
                ((text += (text.empty() ? "" : ", ") + nestedText(elements)), ...);
            },
            value);
        return "(" + text + ")";
    }
}

}  // namespace pavo
