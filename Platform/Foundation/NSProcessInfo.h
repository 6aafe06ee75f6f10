#pragma once

#include <cstdint>

namespace ns {

struct OperatingSystemVersion {
    std::int64_t majorVersion = 0;
    std::int64_t minorVersion = 0;
    std::int64_t patchVersion = 0;

    bool operator==(const OperatingSystemVersion&) const = default;
};

namespace ProcessInfo {

// Version of the running operating system. On Linux: VERSION_ID of os-release, zeros where there is none.
OperatingSystemVersion operatingSystemVersion();

// The real user of this process (getuid); 0 is root.
std::uint32_t userIdentifier();

}  // namespace ProcessInfo

}  // namespace ns
