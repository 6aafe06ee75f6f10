#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

// A set of rights that a process has obtained, one after the other.
typedef const struct AuthorizationOpaqueRef* AuthorizationRef;

typedef UInt32 AuthorizationFlags;
enum {
    kAuthorizationFlagDefaults = 0,
    // A person may be asked to authenticate.
    kAuthorizationFlagInteractionAllowed = 1 << 0,
    // Rights may be obtained. Without it only those that were obtained before count.
    kAuthorizationFlagExtendRights = 1 << 1,
    // One right that is refused does not keep the others from being obtained.
    kAuthorizationFlagPartialRights = 1 << 2,
    // AuthorizationFree gives back what was obtained, so that no later one finds it still granted.
    kAuthorizationFlagDestroyRights = 1 << 3,
    // The rights are obtained now and used later. On Linux it makes no difference: they always are.
    kAuthorizationFlagPreAuthorize = 1 << 4,
};

typedef const char* AuthorizationString;

// `flags` is 0 in what callers pass. On Linux `value` is not used.
typedef struct {
    AuthorizationString name;
    size_t valueLength;
    void* value;
    UInt32 flags;
} AuthorizationItem;

typedef struct {
    UInt32 count;
    AuthorizationItem* items;
} AuthorizationItemSet;

typedef AuthorizationItemSet AuthorizationRights;
typedef AuthorizationItemSet AuthorizationEnvironment;

enum {
    errAuthorizationSuccess = 0,
    errAuthorizationInvalidSet = -60001,
    errAuthorizationInvalidRef = -60002,
    errAuthorizationInvalidPointer = -60004,
    errAuthorizationDenied = -60005,
    errAuthorizationCanceled = -60006,
    errAuthorizationInteractionNotAllowed = -60007,
    errAuthorizationInternal = -60008,
    errAuthorizationInvalidFlags = -60011,
};

// A new, empty set, with `rights` (which may be null) then obtained as AuthorizationCopyRights does. Where
// they are refused there is no new set. A null `authorization` only asks whether they would be granted. On
// Linux this asks nobody anything unless there are rights, and the environment is not used.
OSStatus AuthorizationCreate(const AuthorizationRights* rights, const AuthorizationEnvironment* environment,
                             AuthorizationFlags flags, AuthorizationRef* authorization);

// Whether the set holds all the rights, obtaining them where the flags allow it. Blocks, with interaction for
// as long as a person takes. `authorizedRights` may be null; else it receives those that are held, which the
// caller frees, where the result is success.
//
//   errAuthorizationDenied                 a right is refused, or it is not held and may not be obtained
//   errAuthorizationCanceled               the person closed the prompt, or never answered it
//   errAuthorizationInteractionNotAllowed  a person would have to be asked, and may not or cannot be
//   errAuthorizationInternal               the system's authority is missing, dies, or answers nonsense
OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                                 AuthorizationRights** authorizedRights);

// Defaults, or DestroyRights.
OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags);
OSStatus AuthorizationFreeItemSet(AuthorizationItemSet* set);

CF_EXTERN_C_END

#ifdef __cplusplus
static_assert(sizeof(AuthorizationItem) == 32 && sizeof(AuthorizationItemSet) == 16, "layout of the ABI");
#else
_Static_assert(sizeof(AuthorizationItem) == 32 && sizeof(AuthorizationItemSet) == 16, "layout of the ABI");
#endif
