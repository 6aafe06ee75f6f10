#pragma once

#include "Platform/Support/UniqueFd.h"
#include "Tools/Result.h"

#include <cstdint>
#include <vector>

namespace pavo::tools {

// Sockets that wait for connections from this computer, at 127.0.0.1 and, where there is IPv6, at ::1.
struct LoopbackListener {
    std::vector<UniqueFd> sockets;
    std::uint16_t port;  // of all of them

    // Port 0 is any free one. The problem is a sentence about the port.
    static Result<LoopbackListener> open(std::uint16_t port);
};

}  // namespace pavo::tools
