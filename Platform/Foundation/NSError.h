#pragma once

#include <cstdint>
#include <string>

namespace ns {

// A platform error: the domain says who numbers the codes.
struct Error {
    std::string domain;
    std::int64_t code = 0;

    bool operator==(const Error&) const = default;
};

inline constexpr const char* NSOSStatusErrorDomain = "NSOSStatusErrorDomain";

}  // namespace ns
