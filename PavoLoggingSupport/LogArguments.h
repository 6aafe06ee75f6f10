#pragma once

#include "PavoLoggingSupport/LogArgument.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace pavo {

// Hands out the arguments of a message one after the other, each as the kind of value that a conversion
// takes. A missing argument, or one of another kind, is none: a format that does not fit its arguments reads
// nothing that is not there.
class LogArguments final {
public:
    explicit LogArguments(std::span<const LogArgument> arguments) : rest_(arguments) {}

    // Two's complement; the conversion says how many bits count, and whether there is a sign.
    std::optional<std::uint64_t> nextInteger();
    std::optional<double> nextNumber();
    // A text or an object.
    const LogArgument* nextObject();
    const std::string* nextText();

private:
    const LogArgument* next();

    std::span<const LogArgument> rest_;
};

}  // namespace pavo
