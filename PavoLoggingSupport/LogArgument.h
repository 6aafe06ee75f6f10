#pragma once

#include "Platform/Support/Ref.h"

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

namespace pavo {

// One argument of a log message: what a format's conversion can take. Small integers widen to 32 bits, as
// they do where C passes them on. A text serves "%@" (as an object) and "%s".
class LogArgument final {
public:
    using Value = std::variant<std::int32_t, std::uint32_t, std::int64_t, std::uint64_t, double, std::string,
                               cf::Ref<CFTypeRef>>;

    // NOLINTBEGIN(google-explicit-constructor): a logging call takes plain values.
    template <std::integral Integer>
    LogArgument(Integer value) : value_(widened(value))
    {}
    template <std::floating_point Number>
    LogArgument(Number value) : value_(static_cast<double>(value))
    {}
    LogArgument(std::string value) : value_(std::move(value)) {}
    LogArgument(std::string_view value) : value_(std::string(value)) {}
    // A null pointer reads "(null)", as it does on the platform.
    LogArgument(const char* value) : value_(std::string(value ? value : "(null)")) {}
    template <typename Object>
    LogArgument(const cf::Ref<Object>& object) : value_(cf::retain<CFTypeRef>(object.get()))
    {}
    // NOLINTEND(google-explicit-constructor)

    const Value& value() const { return value_; }

private:
    template <typename Integer>
    static Value widened(Integer value)
    {
        if constexpr (sizeof(Integer) < sizeof(std::int32_t))
            return static_cast<std::int32_t>(value);
        else if constexpr (sizeof(Integer) == sizeof(std::int32_t))
            return static_cast<std::conditional_t<std::is_signed_v<Integer>, std::int32_t, std::uint32_t>>(
                value);
        else
            return static_cast<std::conditional_t<std::is_signed_v<Integer>, std::int64_t, std::uint64_t>>(
                value);
    }

    Value value_;
};

}  // namespace pavo
