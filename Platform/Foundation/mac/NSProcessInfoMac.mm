#include "Platform/Foundation/NSProcessInfo.h"

#include <Foundation/Foundation.h>

namespace ns::ProcessInfo {

OperatingSystemVersion operatingSystemVersion()
{
    const NSOperatingSystemVersion version = NSProcessInfo.processInfo.operatingSystemVersion;
    return {version.majorVersion, version.minorVersion, version.patchVersion};
}

}  // namespace ns::ProcessInfo
