#pragma once

#include "Platform/Foundation/NSData.h"
#include "Platform/Foundation/NSError.h"
#include "Platform/XPC/XPCProtocol.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// What the privileged helper can be asked for. The helper and its other clients use these protocol names and
// selectors letter for letter.
namespace pavo {

// The label of the helper's job, and the name of its service.
inline constexpr std::string_view kHelperLabel = "com.tarnwell.macos.cam.PrivilegedHelper";
// The version of this protocol.
inline constexpr std::uint64_t kHelperCommunicationVersion = 5;

// Answered by the helper. The camera asks for the version and launches the studio; the other methods serve
// other clients, and what their data means is between those and the helper.
class BosunServiceProtocol {
public:
    virtual void getCommunicationVersion(xpc::Reply<std::uint64_t> reply) = 0;
    virtual void ping() = 0;
    virtual void launchStudioIfNeeded() = 0;
    // The reply carries a result, or an error.
    virtual void doInstall(const std::string& stepIdentifier, const ns::Data& encodedContext,
                           const ns::Data& encodedFrozenInstallationState,
                           xpc::Reply<std::optional<ns::Data>, std::optional<ns::Error>> reply) = 0;
    virtual void doComponentUninstall(xpc::Reply<std::optional<ns::Error>> reply) = 0;
    virtual void coreadiosd(xpc::Reply<std::optional<ns::Error>> reply) = 0;
    virtual void checkCMIOExtensionRegistered(xpc::Reply<bool> reply) = 0;

protected:
    ~BosunServiceProtocol() = default;
};

}  // namespace pavo

template <>
struct xpc::Protocol<pavo::BosunServiceProtocol> {
    using Service = pavo::BosunServiceProtocol;
    static constexpr std::string_view name = "CMIOExtensionSupport.BosunServiceProtocol";
    using Adopts = xpc::Adopts<>;
    using Messages = xpc::Messages<
        xpc::Message<"getCommunicationVersionWithReply:", &Service::getCommunicationVersion>,
        xpc::Message<"ping", &Service::ping>,
        xpc::Message<"launchStudioIfNeeded", &Service::launchStudioIfNeeded>,
        xpc::Message<"doInstallWithStepIdentifier:encodedContext:encodedFrozenInstallationState:reply:",
                     &Service::doInstall>,
        xpc::Message<"doComponentUninstallWithReply:", &Service::doComponentUninstall>,
        xpc::Message<"coreadiosdWithReply:", &Service::coreadiosd>,
        xpc::Message<"checkCMIOExtensionRegisteredWithReply:", &Service::checkCMIOExtensionRegistered>>;
};
