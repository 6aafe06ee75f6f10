#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace pavo {

// A width or a precision.
struct FormatAmount {
    enum class Kind : std::uint8_t { absent, constant, fromArgument };

    Kind kind = Kind::absent;
    int value = 0;
};

// One conversion of a format, for example "%{public}-8.3ld".
struct FormatConversion {
    enum class Length : std::uint8_t { none, char8, short16, long64 };

    std::string_view literal;     // the text between the conversion before and this one
    std::string_view text;        // the conversion itself
    std::string_view annotation;  // between the braces
    std::string_view flags;
    FormatAmount width;
    FormatAmount precision;
    Length length = Length::none;
    char conversion = 0;  // 0 where the format ends within the conversion
};

// Takes a format apart, from left to right.
class FormatScanner final {
public:
    explicit FormatScanner(std::string_view format) : rest_(format) {}

    // The next conversion; none at the end, where rest() is the text that remains.
    std::optional<FormatConversion> next();
    std::string_view rest() const { return rest_; }

private:
    std::string_view rest_;
};

}  // namespace pavo
