#pragma once

#include "Platform/Foundation/NSError.h"

#include <Security/Security.h>

#include <optional>

namespace pavo {

// Installs the privileged helper, or replaces it, with the authorization of the person at the machine.
//
// Ownership: made, used for one install and let go. Its authorization reference is deliberately never freed.
// Threads:   everything runs on the caller's thread, which waits for the prompt, too.
// Errors:    what the platform would throw is returned. No authorization reference at all is fatal.
class PrivilegedHelperInstallManager final {
public:
    PrivilegedHelperInstallManager();
    PrivilegedHelperInstallManager(const PrivilegedHelperInstallManager&) = delete;
    PrivilegedHelperInstallManager& operator=(const PrivilegedHelperInstallManager&) = delete;

    // Obtains the right to install a helper, unless this process is root's and needs none.
    std::optional<ns::Error> obtainBlessRight();
    // Obtains the right and installs the helper, which serves its name when this returns without an error.
    std::optional<ns::Error> installHelper();

private:
    AuthorizationRef authRef_ = nullptr;
};

}  // namespace pavo
