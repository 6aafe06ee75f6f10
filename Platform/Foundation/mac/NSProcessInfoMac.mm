#include "Platform/Foundation/NSProcessInfo.h"

#include <Foundation/Foundation.h>

#include <unistd.h>

namespace ns::ProcessInfo {

OperatingSystemVersion operatingSystemVersion()
{
    const NSOperatingSystemVersion version = NSProcessInfo.processInfo.operatingSystemVersion;
    return {version.majorVersion, version.minorVersion, version.patchVersion};
}

std::uint32_t userIdentifier()
{
    return ::getuid();
}

}  // namespace ns::ProcessInfo
