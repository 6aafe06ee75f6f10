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
inline constexpr const char* NSCocoaErrorDomain = "NSCocoaErrorDomain";

// Codes of NSCocoaErrorDomain: why a call over a connection got no reply.
inline constexpr std::int64_t NSXPCConnectionInterrupted = 4097;   // the peer went away meanwhile
inline constexpr std::int64_t NSXPCConnectionInvalid = 4099;       // there is no peer, and will be none
inline constexpr std::int64_t NSXPCConnectionReplyInvalid = 4101;  // the peer answered with something else

}  // namespace ns
