#include "Platform/XPC/mac/XPCRuntimeProtocol.h"

#include "Platform/Support/Fatal.h"

#include <string>

namespace xpc {

const RuntimeProtocol& runtimeProtocol(const ProtocolDescription& description)
{
    for (const auto& candidate : runtimeProtocols)
        if (&candidate.description() == &description) return candidate;
    pavo::fatalError("No Objective-C protocol was compiled for " + std::string(description.name));
}

}  // namespace xpc
