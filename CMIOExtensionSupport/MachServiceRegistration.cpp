#include "CMIOExtensionSupport/MachServiceRegistration.h"

#include "Platform/XPC/XPCListenerEndpoint.h"

#include <servers/bootstrap.h>

#include <cstddef>
#include <string>

namespace {

// Registers the endpoint's port in the namespace. A missing name goes to the system as it is.
void registerEndpoint(mach_port_t bootstrapPort, const void* endpoint, CFStringRef name)
{
    const mach_port_t port = xpc::ListenerEndpoint::machPort(endpoint);
    if (!name) {
        bootstrap_register(bootstrapPort, nullptr, port);
        return;
    }
    const auto size = CFStringGetMaximumSizeForEncoding(CFStringGetLength(name), kCFStringEncodingUTF8) + 1;
    std::string text(static_cast<std::size_t>(size), '\0');
    CFStringGetCString(name, text.data(), size, kCFStringEncodingUTF8);
    bootstrap_register(bootstrapPort, text.data(), port);
}

}  // namespace

void dynamically_register_mach_service_for_endpoint(const void* endpoint, CFStringRef name)
{
    registerEndpoint(bootstrap_port, endpoint, name);
}

void dynamically_register_mach_service_for_endpoint_on_parent(const void* endpoint, CFStringRef name)
{
    mach_port_t parentPort = 0;  // where there is no parent, the registration goes to no namespace
    bootstrap_parent(bootstrap_port, &parentPort);
    registerEndpoint(parentPort, endpoint, name);
}
