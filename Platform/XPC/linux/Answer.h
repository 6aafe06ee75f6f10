#pragma once

#include "Platform/XPC/XPCProtocol.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

namespace xpc {

class PeerLink;

// The answer that a call of the peer waits for. If it goes without having been given, the peer is told that
// there is none.
//
// Ownership: shared by the copies of a Reply. Knows the link weakly.
// Threads:   safe from any thread.
class Answer final {
public:
    // `cookie` is the number that the call has on the link.
    Answer(std::weak_ptr<PeerLink> link, std::uint64_t cookie, const MethodDescription& method);
    ~Answer();
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;

    // Sends the first one; logs and drops all others.
    void give(std::span<const Argument> values);

private:
    const std::weak_ptr<PeerLink> link_;
    const std::uint64_t cookie_;
    const MethodDescription& method_;
    std::atomic<bool> isGiven_ = false;
};

}  // namespace xpc
