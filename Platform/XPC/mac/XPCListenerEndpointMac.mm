#include "Platform/XPC/XPCListenerEndpoint.h"

#include <Foundation/Foundation.h>

#include <cstddef>
#include <cstring>

// Not published by the system: the endpoint object of the layer below.
@interface NSXPCListenerEndpoint (PavoEndpoint)
- (id)_endpoint;
@end

namespace xpc {

namespace {

constexpr std::size_t kPortNameOffset = 24;

}  // namespace

mach_port_t ListenerEndpoint::machPort(CFTypeRef endpointObject)
{
    const id endpoint = [(__bridge NSXPCListenerEndpoint*)endpointObject _endpoint];
    if (!endpoint) return MACH_PORT_NULL;
    mach_port_t name = MACH_PORT_NULL;
    std::memcpy(&name, static_cast<const char*>((__bridge const void*)endpoint) + kPortNameOffset,
                sizeof(name));
    return name;
}

}  // namespace xpc
