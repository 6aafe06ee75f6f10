#include "Platform/Foundation/NSProcessInfo.h"

#include "Platform/Foundation/linux/OSRelease.h"

#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

namespace ns::ProcessInfo {

OperatingSystemVersion operatingSystemVersion()
{
    // The first of the two that exists counts.
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        std::ifstream file(path);
        if (!file) continue;
        return versionFromOSRelease(std::string(std::istreambuf_iterator<char>(file), {}));
    }
    return {};
}

std::uint32_t userIdentifier()
{
    return ::getuid();
}

}  // namespace ns::ProcessInfo
