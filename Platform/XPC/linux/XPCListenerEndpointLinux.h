#pragma once

#include "Platform/Support/UniqueFd.h"
#include "Platform/XPC/XPCListenerEndpoint.h"

#include <CoreFoundation/CFObject.h>

#include <memory>

namespace xpc {

// A listener's port: a listening socket. Endpoints know it weakly, so that the number of a port that is gone
// is never taken for the descriptor that got the number next.
class ListeningPort final {
public:
    // Name 0, and a line in the log, where the system has no room.
    ListeningPort();
    ~ListeningPort();
    ListeningPort(const ListeningPort&) = delete;
    ListeningPort& operator=(const ListeningPort&) = delete;

    mach_port_t name() const { return name_; }

private:
    mach_port_t name_ = MACH_PORT_NULL;
};

// The object behind a ListenerEndpoint, laid out as the platform's: the port's name is at offset 24.
struct EndpointObject : cf::runtime::Object {
    static const cf::runtime::Class& classInfo();

    // Null where the listener was invalidated: an endpoint that leads nowhere.
    explicit EndpointObject(const std::shared_ptr<ListeningPort>& port);

    const std::uint64_t reserved = 0;  // keeps the port in its place
    const mach_port_t portName;
    const std::weak_ptr<ListeningPort> listeningPort;
};

ListenerEndpoint makeEndpoint(const std::shared_ptr<ListeningPort>& port);

// A connected socket. Invalid where the listener is gone, or has no room for another peer.
pavo::UniqueFd connectTo(const ListenerEndpoint& endpoint);

}  // namespace xpc
