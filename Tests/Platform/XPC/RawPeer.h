#pragma once

#include "Platform/Support/UniqueFd.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace pavo::test {

// A D-Bus message written down byte by byte, right or wrong.
struct RawCall {
    std::string path = "/com/tarnwell/macos/cam/Object";
    std::string interface;
    std::string member;
    std::string signature;
    std::string body;
    std::uint32_t descriptorCount = 0;  // as the header tells it
    std::uint8_t type = 1;              // method call
    std::uint8_t flags = 1;             // no reply expected
    std::uint32_t serial = 1;
    std::string errorName;          // of an error
    std::uint32_t replySerial = 0;  // what an answer answers; 0: the field is left out
    std::string unknownField;       // a header field that no standard knows, of this text

    std::string bytes() const;
};

// The arguments of a frame message: descriptor 0 and nine numbers per time, each a different one.
std::string frameBody();
RawCall frameCall(const std::string& interface, const std::string& member);

// An answer to the message of that number.
RawCall answerTo(std::uint32_t serial, const std::string& signature, const std::string& body);
// The number of a message, as it stands in its header.
std::uint32_t serialOf(const std::string& message);

// Little-endian bytes.
template <typename Number>
std::string little(Number number)
{
    std::string bytes(sizeof(Number), '\0');
    for (std::size_t i = 0; i < sizeof(Number); ++i)
        bytes[i] = static_cast<char>(static_cast<std::uint64_t>(number) >> (8 * i));
    return bytes;
}

// One side of a connection that speaks by hand.
class RawPeer {
public:
    explicit RawPeer(UniqueFd socket) : socket_(std::move(socket)) {}

    // As the side that connects. False where the other side does not agree.
    bool authenticate();
    // As the side that listens, to a peer that sends the whole conversation at once.
    bool answerAuthentication();
    bool send(const std::string& bytes, std::span<const int> descriptors = {});
    // The next `size` bytes; fewer where the other side ends or is silent for ten seconds. Descriptors that
    // come along are added to descriptors().
    std::string receive(std::size_t size);
    // A whole message.
    std::string receiveMessage();
    std::vector<UniqueFd>& descriptors() { return descriptors_; }
    // True when the other side closes within the time that its limits allow.
    bool waitForEnd();
    void close() { socket_.reset(); }

private:
    bool exchange(const std::string& line, const std::string& expectedBeginning);

    UniqueFd socket_;
    std::vector<UniqueFd> descriptors_;
};

}  // namespace pavo::test
