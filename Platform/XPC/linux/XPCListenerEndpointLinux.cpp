#include "Platform/XPC/linux/XPCListenerEndpointLinux.h"

#include "Platform/XPC/linux/XPCLog.h"

#include <mach/port_private.h>

#include <cstddef>
#include <cstring>

namespace xpc {

namespace {

constexpr std::size_t kPortNameOffset = 24;

}  // namespace

ListeningPort::ListeningPort()
{
    const auto result = mach_port_allocate(mach_task_self(), MACH_PORT_RIGHT_RECEIVE, &name_);
    if (result == KERN_SUCCESS) return;
    name_ = MACH_PORT_NULL;
    os_log_printf(log(), OS_LOG_TYPE_ERROR, "Cannot make a port to listen at: error %d", result);
}

ListeningPort::~ListeningPort()
{
    if (MACH_PORT_VALID(name_)) mach_port_deallocate(mach_task_self(), name_);
}

const cf::runtime::Class& EndpointObject::classInfo()
{
    static const cf::runtime::Class info{"XPCListenerEndpoint", cf::runtime::destroy<EndpointObject>};
    return info;
}

EndpointObject::EndpointObject(const std::shared_ptr<ListeningPort>& port)
    : Object(classInfo()),
      portName(port ? port->name() : MACH_PORT_NULL),
      listeningPort(port)
{
// Both compilers know the layout of a class that is derived from another one, and warn all the same.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    static_assert(offsetof(EndpointObject, portName) == kPortNameOffset);
#pragma GCC diagnostic pop
}

ListenerEndpoint makeEndpoint(const std::shared_ptr<ListeningPort>& port)
{
    return ListenerEndpoint(cf::adopt<CFTypeRef>(cf::runtime::create<EndpointObject>(port)));
}

mach_port_t ListenerEndpoint::machPort(CFTypeRef endpointObject)
{
    if (!endpointObject) return MACH_PORT_NULL;
    mach_port_t name = MACH_PORT_NULL;
    std::memcpy(&name, static_cast<const char*>(endpointObject) + kPortNameOffset, sizeof(name));
    return name;
}

pavo::UniqueFd connectTo(const ListenerEndpoint& endpoint)
{
    const auto* object = cf::runtime::cast<EndpointObject>(endpoint.object());
    const auto port = object ? object->listeningPort.lock() : nullptr;
    mach_port_t connection = MACH_PORT_NULL;
    if (!port || mach_port_connect(port->name(), &connection) != KERN_SUCCESS) return {};
    return pavo::UniqueFd(static_cast<int>(connection));
}

}  // namespace xpc
