#pragma once

#include <cstddef>

namespace pavo {

// A text known when the program is compiled. The log stores a format by its place in the image, so a format
// can only be a literal; anything else does not compile.
class ConstantText final {
public:
    // NOLINTNEXTLINE(google-explicit-constructor): callers write the literal and nothing else.
    template <std::size_t length>
    consteval ConstantText(const char (&literal)[length]) : text_(literal)
    {}

    constexpr const char* text() const { return text_; }

private:
    const char* text_;
};

// A format in the syntax of os_log, for example "Started %{public}@ after %{public}d s".
using LogFormat = ConstantText;

}  // namespace pavo
