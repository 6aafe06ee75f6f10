#pragma once

#include "Platform/XPC/XPCProtocol.h"
#include "Platform/XPC/linux/MessageReader.h"
#include "Platform/XPC/linux/SurfaceCache.h"
#include "Platform/XPC/linux/WireNames.h"

#include <systemd/sd-bus.h>

#include <memory>
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

struct OutgoingMessage {
    DeclaredMethod target;
    std::vector<Argument> arguments;  // of the method's types
};

struct IncomingMessage {
    const MethodDescription* method = nullptr;
    std::vector<Argument> arguments;  // of the method's types
};

// Why a message cannot be taken.
using Refusal = std::string;

// A method call without a reply. Null, with the reason as a negative errno in `error`, where it cannot be
// made.
BusMessage encode(sd_bus* bus, const OutgoingMessage& message, int& error);

// `raw` holds the bytes that `message` was parsed from. `exported` may be null.
std::variant<IncomingMessage, Refusal> decode(sd_bus_message* message, const MessageReader& raw,
                                              const ProtocolDescription* exported, SurfaceCache& surfaces);

}  // namespace xpc
