#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Authorization.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// In place of authorization and of the blessing of helpers, for programs that wrap AuthorizationCreate,
// AuthorizationCopyRights, AuthorizationFree and SMJobBless: they do what a test wants, and are recorded.
namespace pavo::test {

struct CopiedRight {
    std::string name;
    std::size_t valueLength;
    bool hasValue;
    std::uint32_t flags;
};

struct AuthorizationCall {
    std::string function;
    AuthorizationRef reference = nullptr;
    std::uint32_t flags = 0;
    bool hasEnvironment = false;
    bool wantsResult = false;              // AuthorizationCopyRights: the rights that are held
    std::vector<CopiedRight> rights = {};  // none also for a null set
    std::string domain = {};               // SMJobBless
    std::string label = {};                // SMJobBless
};

struct AuthorizationBehaviour {
    OSStatus create = 0;
    OSStatus copyRights = 0;
    bool blesses = true;
    // Of a blessing that fails; none: it fails without one.
    std::optional<std::string> errorDomain = "CFErrorDomainLaunchd";
    CFIndex errorCode = 4;
};

// Changed only while nothing runs that could call those functions.
AuthorizationBehaviour& authorizationBehaviour();
// What was called since the last call, oldest first.
std::vector<AuthorizationCall> takeAuthorizationCalls();
// The reference that AuthorizationCreate gives.
AuthorizationRef recordedAuthorization();
// How often somebody else still holds the error of the last blessing; 0 where there is none.
CFIndex heldErrorCount();
void resetAuthorization();

}  // namespace pavo::test
