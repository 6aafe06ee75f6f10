#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace xpc {

// Reads, from the header fields of a D-Bus message, how many descriptors belong to it, and writes 0 there.
//
// The library drops a message that it finds broken, and forgets to close the message's descriptors (sd-bus of
// systemd 252). It therefore never gets any: they stay with the MessageReader, and the message tells it that
// there are none. None where the fields are malformed; the library decides about everything else in them.
std::optional<std::uint32_t> takeDescriptorCount(std::span<std::byte> fields, bool isBigEndian);

}  // namespace xpc
