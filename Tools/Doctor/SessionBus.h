#pragma once

#include "Platform/Support/linux/SystemBus.h"
#include "Tools/Doctor/Patience.h"
#include "Tools/Doctor/System.h"

#include <map>
#include <optional>
#include <string>

namespace pavo::tools {

// Questions to the services of the user's desktop. No question starts a service.
//
// Errors: a bus that has been silent once is not asked again.
//
// Threads: for one thread.
class SessionBus final {
public:
    explicit SessionBus(const Patience& patience) : patience_(patience) {}

    Result<std::optional<UserService>> service(const std::string& unit);
    Result<CameraPortal> cameraPortal();
    Result<std::map<std::string, std::string>> cameraPermissions();

private:
    struct Address {
        const char* service;
        const char* path;
        const char* interface;
    };
    // What a service has answered; an error of its own has a name, one on the way has none.
    struct Reply {
        BusMessage message;
        std::string errorName;
        std::string problem;

        explicit operator bool() const { return message != nullptr; }
    };

    bool open();
    BusMessage newCall(const Address& address, const char* method);
    Reply ask(BusMessage call);
    Reply askProperty(const Address& address, const char* name);
    Result<bool> isActivatable(const std::string& name);
    // 0 where nobody has the name.
    Result<pid_t> ownerOf(const char* name);

    const Patience& patience_;
    Bus bus_;
    std::string problem_;  // why the bus is of no use
};

}  // namespace pavo::tools
