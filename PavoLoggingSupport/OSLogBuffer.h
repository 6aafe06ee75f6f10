#pragma once

#include "PavoLoggingSupport/FormatScanner.h"
#include "PavoLoggingSupport/LogArgument.h"
#include "PavoLoggingSupport/LogArguments.h"

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace pavo {

// The arguments of one message as the system's log takes them: what the compiler would write for a format
// that it knows. One item per conversion, up to the first whose argument is missing or does not fit.
//
// Ownership: holds the objects that the bytes point to. The texts among the arguments must outlive it.
class OSLogBuffer final {
public:
    OSLogBuffer(std::string_view format, std::span<const LogArgument> arguments);
    OSLogBuffer(const OSLogBuffer&) = delete;
    OSLogBuffer& operator=(const OSLogBuffer&) = delete;

    std::span<std::uint8_t> bytes() { return bytes_; }

private:
    enum class Kind : std::uint8_t { scalar = 0, count = 1, text = 2, object = 4 };
    enum class Privacy : std::uint8_t { automatic = 0, isPrivate = 1, isPublic = 2 };

    static Privacy privacyFrom(std::string_view annotation);
    bool appendConversion(const FormatConversion& conversion, LogArguments& arguments);
    bool appendAmount(const FormatAmount& amount, Kind kind, LogArguments& arguments);
    bool appendInteger(const FormatConversion& conversion, LogArguments& arguments);
    bool appendNumber(const FormatConversion& conversion, LogArguments& arguments);
    bool appendText(const FormatConversion& conversion, LogArguments& arguments);
    bool appendObject(const FormatConversion& conversion, LogArguments& arguments);
    template <typename Value>
    void appendItem(Kind kind, Privacy privacy, const Value& value);

    std::vector<std::uint8_t> bytes_;
    std::vector<cf::Ref<CFStringRef>> objects_;
};

}  // namespace pavo
