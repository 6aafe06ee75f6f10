#pragma once

#include "Platform/XPC/XPCProtocol.h"

#include <string_view>

// How a running camera is asked how it is. Any program of the camera's user may ask:
// Documentation/WireFormat.md tells the names.
namespace pavo::tools {

// Whoever has this name is the user's camera: there is one.
inline constexpr std::string_view kStatusServiceName = "com.tarnwell.macos.cam.status";

class CameraStatusService {
public:
    // The reply carries a CameraStatus as JSON.
    virtual void status(xpc::Reply<ns::Data> reply) = 0;

protected:
    ~CameraStatusService() = default;
};

}  // namespace pavo::tools

template <>
struct xpc::Protocol<pavo::tools::CameraStatusService> {
    using Service = pavo::tools::CameraStatusService;
    static constexpr std::string_view name = "PavoTools.CameraStatusService";
    using Adopts = xpc::Adopts<>;
    using Messages = xpc::Messages<xpc::Message<"statusWithReply:", &Service::status>>;
};
