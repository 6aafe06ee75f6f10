#pragma once

#include "Platform/XPC/XPCConnection.h"
#include "Platform/XPC/XPCListener.h"

#include <Foundation/Foundation.h>

#include <atomic>

// What stands behind the objects of this face. The system's objects do all the work, and keep themselves
// alive while they are resumed.
namespace xpc {

struct Connection::Impl {
    explicit Impl(NSXPCConnection* object) : connection(object) {}

    NSXPCConnection* const connection;
    std::atomic<const ProtocolDescription*> remoteInterface = nullptr;
};

struct Listener::Impl {
    explicit Impl(NSXPCListener* object) : listener(object) {}

    NSXPCListener* const listener;
};

}  // namespace xpc
