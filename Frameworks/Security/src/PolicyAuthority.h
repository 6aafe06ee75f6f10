#pragma once

#include <Security/Authorization.h>

#include <string>

// The system's authority on who may do what: polkit, on the system's bus.
//
// Threads: every call has a connection of its own, and blocks.
// Errors:  codes of <Security/Authorization.h>; the log says what stood behind errAuthorizationInternal.
namespace pavo::security {

struct Answer {
    OSStatus status = errAuthorizationInternal;
    // What polkit keeps for this process for some minutes, where it does; empty where it keeps nothing.
    std::string temporaryAuthorization;
};

// Whether this process may do what the action names. With interaction a person may be asked, and is waited
// for.
Answer checkAuthorization(const std::string& action, bool isInteractionAllowed);

// Gives a temporary authorization back before its time is over.
void revokeTemporaryAuthorization(const std::string& identifier);

}  // namespace pavo::security
