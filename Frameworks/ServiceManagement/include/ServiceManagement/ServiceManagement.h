#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Authorization.h>

CF_EXTERN_C_BEGIN

// The domain of services that run for the whole system. Pass this constant, not a string like it.
CF_EXPORT const CFStringRef kSMDomainSystemLaunchd;

// The right that SMJobBless wants to see in hand.
#define kSMRightBlessPrivilegedHelper "com.apple.ServiceManagement.blesshelper"

// Where an error comes from: found here, before anybody was asked to install anything
// ("CFErrorDomainFramework"), or on the side that installs ("CFErrorDomainLaunchd"), which is systemd's on
// Linux. The codes are the same.
CF_EXPORT const CFStringRef kSMErrorDomainFramework;
CF_EXPORT const CFStringRef kSMErrorDomainLaunchd;
enum {
    kSMErrorInternalFailure = 2,
    kSMErrorInvalidSignature = 3,      // somebody other than root could have changed the helper or its unit
    kSMErrorAuthorizationFailure = 4,  // the right is not in hand, or systemd does not accept it
    kSMErrorToolNotValid = 5,          // the main bundle has no such helper, or it is no program
    kSMErrorJobNotFound = 6,           // systemd does not find the unit that it was given
    kSMErrorServiceUnavailable = 7,    // there is no systemd, or it does not answer
    kSMErrorJobPlistNotFound = 8,      // the helper has no unit beside it
    kSMErrorJobMustBeEnabled = 9,      // the administrator has masked the unit
    kSMErrorInvalidPlist = 10,         // its unit is not one for this helper
};

// Installs the helper that the main bundle has as Contents/Library/LaunchServices/<executableLabel>, and
// starts it; one that runs is replaced. Wants kSMRightBlessPrivilegedHelper in hand, unless the process is
// root's. Blocks until the service has started. Where the result is false, `outError` (if not null) receives
// an error of one of the two domains, which the caller releases.
Boolean SMJobBless(CFStringRef domain, CFStringRef executableLabel, AuthorizationRef auth,
                   CFErrorRef* outError);

CF_EXTERN_C_END
