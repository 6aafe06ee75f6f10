#pragma once

#include <fcntl.h>
#include <sys/un.h>

#include <cstdio>
#include <string>

#include "Platform/Support/UniqueFd.h"

namespace pavo::mach {

// A process that closed its standard streams is given their numbers next. 0 would be no port, and text meant
// for the others would end up in a connection.
inline UniqueFd withoutStandardNumbers(UniqueFd descriptor)
{
    if (!descriptor.isValid() || descriptor.get() > 2) return descriptor;
    return UniqueFd(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, 3));
}

// The address of a socket's file, by way of a descriptor: of the folder that holds it, or of the file itself
// where `file` is empty. A socket's address has room for a short path only, and a path could be made to lead
// elsewhere after it was checked.
inline sockaddr_un addressIn(int descriptor, const std::string& file)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path,
                  file.empty() ? "/proc/self/fd/%d" : "/proc/self/fd/%d/%s", descriptor, file.c_str());
    return address;
}

}  // namespace pavo::mach
