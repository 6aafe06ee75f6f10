#pragma once

#include "Platform/Support/UniqueFd.h"

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace xpc {

// Takes one authentication line or one message from a socket, and never a byte more. The library behind it
// would take messages of 128 MiB with any number of descriptors; what passes here has been measured first,
// and its descriptors are known to be its own and stay here.
//
// Ownership: owns the descriptors that it has received; borrows the socket.
// Threads:   not thread-safe; belongs to one link.
class MessageReader final {
public:
    enum class Result {
        incomplete,  // the socket has no more for now
        complete,    // see bytes() and descriptors(), then call reset()
        ended,       // the peer is gone
        rejected,    // see rejection(); nothing more can be read
    };

    Result readLine(int socket);
    Result readMessage(int socket);
    void reset();

    // A complete message says here that it has no descriptors, whatever descriptors() holds.
    std::span<const std::byte> bytes() const { return bytes_; }
    std::span<const pavo::UniqueFd> descriptors() const { return descriptors_; }
    // The arguments of a complete message, as they are on the wire.
    std::span<const std::byte> body() const { return std::span(bytes_).subspan(bodyOffset_); }
    bool isBigEndian() const;

    // True between the first and the last byte of a message.
    bool isInsideMessage() const { return !bytes_.empty(); }
    const char* rejection() const { return rejection_; }

private:
    Result receive(int socket, std::size_t wantedSize);
    bool takeDescriptors(const msghdr& header);
    bool measure();
    bool ownsDescriptors();
    std::uint32_t headerNumber(std::size_t offset) const;
    Result reject(const char* reason);

    std::vector<std::byte> bytes_;
    std::vector<pavo::UniqueFd> descriptors_;
    std::size_t messageSize_ = 0;  // 0 until the header is there
    std::size_t bodyOffset_ = 0;
    const char* rejection_ = nullptr;
};

}  // namespace xpc
