#pragma once

#ifndef __linux__
#error "This is the Linux implementation of the XPC face."
#endif

#include <chrono>
#include <cstddef>

// What a peer may ask of a connection, and the one name on the wire that no protocol gives.
// Documentation/WireFormat.md tells them to those who write a peer.
namespace xpc {

// The object that each side of a connection exports.
inline constexpr const char* kObjectPath = "/com/tarnwell/macos/cam/Object";

inline constexpr std::size_t kMaxMessageBytes = 64 * 1024;
inline constexpr std::size_t kMaxMessageDescriptors = 4;
// Of all texts and data in a message together; leaves room in it for the header and the other arguments.
inline constexpr std::size_t kMaxVariableBytes = 60 * 1024;
inline constexpr std::size_t kMaxAuthenticationLineBytes = 512;

// Messages that wait to be sent, apart from those in the socket's own buffer.
inline constexpr std::size_t kMaxQueuedMessages = 256;
// The socket's own buffer, kept small: what lies in it is old news for a peer that does not read.
inline constexpr int kSendBufferBytes = 64 * 1024;
// Messages that were received and wait for the connection's queue. At this number reading stops, and goes on
// when half of them are done, so that a slow exported object slows its peer down instead of filling memory.
inline constexpr std::size_t kMaxUndeliveredMessages = 256;

// Calls of this side that wait for their replies, and calls of the peer that wait for ours.
inline constexpr std::size_t kMaxUnansweredCalls = 256;

inline constexpr std::size_t kMaxUnauthenticatedPeers = 16;
inline constexpr std::size_t kMaxCachedSurfaces = 32;

inline constexpr std::chrono::seconds kAuthenticationTimeout{5};
// From a message's first byte to its last.
inline constexpr std::chrono::seconds kPartialMessageTimeout{5};
// How long a connection that was invalidated stays to get rid of the messages from before.
inline constexpr std::chrono::seconds kClosingTimeout{5};
// How long a listener leaves its peers waiting when there are no descriptors for them.
inline constexpr std::chrono::milliseconds kAcceptBackoff{250};

}  // namespace xpc
