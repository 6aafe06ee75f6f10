#include <Security/Authorization.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "PolicyAuthority.h"
#include "RightNames.h"

// The rights that were obtained, each with the temporary authorization that stands behind it, if there is
// one.
struct AuthorizationOpaqueRef {
    mutable std::mutex mutex;
    mutable std::map<std::string, std::string> rights;
};

namespace {

constexpr AuthorizationFlags kObtainingFlags =
    kAuthorizationFlagInteractionAllowed | kAuthorizationFlagExtendRights | kAuthorizationFlagPartialRights |
    kAuthorizationFlagPreAuthorize;

bool isValid(const AuthorizationItemSet* set)
{
    if (!set || (set->count > 0 && !set->items)) return false;
    for (UInt32 i = 0; i < set->count; ++i)
        if (!set->items[i].name) return false;
    return true;
}

bool isHeld(AuthorizationRef authorization, const std::string& right)
{
    const std::lock_guard lock(authorization->mutex);
    return authorization->rights.contains(right);
}

OSStatus obtain(AuthorizationRef authorization, const std::string& right, AuthorizationFlags flags)
{
    if ((flags & kAuthorizationFlagExtendRights) == 0)
        return isHeld(authorization, right) ? errAuthorizationSuccess : errAuthorizationDenied;
    const auto action = pavo::security::actionForRight(right);
    if (action.empty()) return errAuthorizationDenied;
    // Asked even where it is held: what stood behind it may have run out, and costs nobody anything if not.
    auto answer =
        pavo::security::checkAuthorization(action, (flags & kAuthorizationFlagInteractionAllowed) != 0);
    const std::lock_guard lock(authorization->mutex);
    if (answer.status == errAuthorizationSuccess)
        authorization->rights.insert_or_assign(right, std::move(answer.temporaryAuthorization));
    else
        authorization->rights.erase(right);
    return answer.status;
}

// As AuthorizationFreeItemSet takes it apart.
AuthorizationItemSet* copySet(const std::vector<std::string>& rights)
{
    auto* const set = static_cast<AuthorizationItemSet*>(std::calloc(1, sizeof(AuthorizationItemSet)));
    if (!set) return nullptr;
    set->items = static_cast<AuthorizationItem*>(std::calloc(rights.size() + 1, sizeof(AuthorizationItem)));
    for (const auto& right : rights) {
        char* const name = set->items ? strdup(right.c_str()) : nullptr;
        if (!name) {
            AuthorizationFreeItemSet(set);
            return nullptr;
        }
        set->items[set->count++].name = name;
    }
    return set;
}

}  // namespace

OSStatus AuthorizationCreate(const AuthorizationRights* rights, const AuthorizationEnvironment* environment,
                             AuthorizationFlags flags, AuthorizationRef* authorization)
{
    if (!rights && !authorization) return errAuthorizationInvalidPointer;
    if ((flags & ~kObtainingFlags) != 0) return errAuthorizationInvalidFlags;
    auto created = std::make_unique<AuthorizationOpaqueRef>();
    if (rights) {
        const auto status = AuthorizationCopyRights(created.get(), rights, environment, flags, nullptr);
        if (status != errAuthorizationSuccess) return status;
    }
    if (authorization) *authorization = created.release();
    return errAuthorizationSuccess;
}

OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment*, AuthorizationFlags flags,
                                 AuthorizationRights** authorizedRights)
{
    if (!authorization) return errAuthorizationInvalidRef;
    if (!isValid(rights)) return errAuthorizationInvalidSet;
    if ((flags & ~kObtainingFlags) != 0) return errAuthorizationInvalidFlags;
    std::vector<std::string> held;
    OSStatus failure = errAuthorizationSuccess;
    for (UInt32 i = 0; i < rights->count; ++i) {
        const auto status = obtain(authorization, rights->items[i].name, flags);
        if (status == errAuthorizationSuccess) {
            held.emplace_back(rights->items[i].name);
            continue;
        }
        if ((flags & kAuthorizationFlagPartialRights) == 0) return status;
        if (failure == errAuthorizationSuccess) failure = status;
    }
    if (held.empty() && failure != errAuthorizationSuccess) return failure;
    if (authorizedRights && !(*authorizedRights = copySet(held))) return errAuthorizationInternal;
    return errAuthorizationSuccess;
}

OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags)
{
    if (!authorization) return errAuthorizationInvalidRef;
    if ((flags & ~static_cast<AuthorizationFlags>(kAuthorizationFlagDestroyRights)) != 0)
        return errAuthorizationInvalidFlags;
    const std::unique_ptr<const AuthorizationOpaqueRef> owned(authorization);
    if ((flags & kAuthorizationFlagDestroyRights) != 0)
        for (const auto& [right, temporaryAuthorization] : owned->rights)
            if (!temporaryAuthorization.empty())
                pavo::security::revokeTemporaryAuthorization(temporaryAuthorization);
    return errAuthorizationSuccess;
}

OSStatus AuthorizationFreeItemSet(AuthorizationItemSet* set)
{
    if (!set) return errAuthorizationInvalidPointer;
    for (UInt32 i = 0; i < set->count; ++i)
        std::free(const_cast<char*>(set->items[i].name));
    std::free(set->items);
    std::free(set);
    return errAuthorizationSuccess;
}
