#pragma once

#include "Platform/Support/Ref.h"

#include <mach/port.h>

namespace xpc {

// Names a listener for a peer that wants to connect to it. The object behind it is the platform's own
// endpoint object, which travels as a plain pointer through C interfaces.
class ListenerEndpoint final {
public:
    explicit ListenerEndpoint(cf::Ref<CFTypeRef> object) : object_(std::move(object)) {}

    CFTypeRef object() const { return object_.get(); }

    // The send right that an endpoint object carries, by the private layout of the platform's endpoint: an
    // unsigned 32-bit port name at byte offset 24. There is no public accessor; this is the one place that
    // knows. Borrowed, not added to. 0 for a null object.
    static mach_port_t machPort(CFTypeRef endpointObject);

private:
    cf::Ref<CFTypeRef> object_;
};

}  // namespace xpc
