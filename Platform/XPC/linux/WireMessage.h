#pragma once

#include "Platform/XPC/XPCProtocol.h"
#include "Platform/XPC/linux/MessageReader.h"
#include "Platform/XPC/linux/SurfaceCache.h"
#include "Platform/XPC/linux/WireNames.h"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

// Between calls and D-Bus messages. A message belongs to its bus: these functions are called under the lock
// of the bus.
namespace xpc {

struct BusMessageDeleter {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using BusMessage = std::unique_ptr<sd_bus_message, BusMessageDeleter>;

// Names a call that waits for its reply, within its connection.
using CallNumber = std::uint64_t;
inline constexpr CallNumber kNoCall = 0;

struct OutgoingMessage {
    DeclaredMethod target;
    std::vector<Argument> arguments;  // of the method's types
    CallNumber call = kNoCall;        // for a method with a reply
};

struct IncomingMessage {
    const MethodDescription* method = nullptr;
    std::vector<Argument> arguments;  // of the method's types
    ReplySink reply;                  // for a method with a reply
};

struct IncomingReply {
    CallNumber call = kNoCall;
    std::optional<std::vector<Argument>> values;  // of the reply's types; none: not the declared reply
};

// Why a message cannot be taken.
using Refusal = std::string;

// A method call. Null, with the reason as a negative errno in `error`, where it cannot be made.
BusMessage encode(sd_bus* bus, const OutgoingMessage& message, int& error);
// The answer to a call; an error where there are no values. Null as above.
BusMessage encodeAnswer(sd_bus_message* call, const std::vector<Argument>* values, int& error);

// `raw` holds the bytes that `message` was parsed from. `exported` may be null. The reply is left empty.
std::variant<IncomingMessage, Refusal> decode(sd_bus_message* message, const MessageReader& raw,
                                              const ProtocolDescription* exported, SurfaceCache& surfaces);
// The values of an answer to a call of a method with a reply.
std::variant<std::vector<Argument>, Refusal> decodeAnswer(sd_bus_message* message, const MessageReader& raw,
                                                          const MethodDescription& method,
                                                          SurfaceCache& surfaces);

}  // namespace xpc
