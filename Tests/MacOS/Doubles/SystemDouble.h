#pragma once

#include <mach/port.h>
#include <os/log.h>

#include <cstdint>
#include <string>
#include <vector>

// In place of the C calls of the system that leave the process: the bootstrap namespaces and the log.
namespace pavo::test {

inline constexpr mach_port_t kParentNamespace = 99;

struct Registration {
    mach_port_t bootstrapPort;
    std::string name;
    mach_port_t port;

    bool operator==(const Registration&) const = default;
};

struct LoggedMessage {
    std::string format;
    os_log_type_t type;
    std::uint8_t itemCount;
    bool isOfThisImage;  // the image that it is attributed to, and the place of its format
};

std::vector<Registration> registrations();
std::vector<LoggedMessage> loggedMessages();
bool wasLogged(const std::string& format);
void forgetSystemCalls();

}  // namespace pavo::test
