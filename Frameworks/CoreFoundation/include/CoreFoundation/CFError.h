#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

CF_EXTERN_C_BEGIN

// Not const, as on the platform; an error never changes all the same.
typedef struct __CFError* CFErrorRef;
typedef CFStringRef CFErrorDomain;

// "NSOSStatusErrorDomain": the codes are OSStatus values.
CF_EXPORT const CFErrorDomain kCFErrorDomainOSStatus;
// The key of a text for people in an error's dictionary: "NSLocalizedDescription".
CF_EXPORT const CFStringRef kCFErrorLocalizedDescriptionKey;

CFTypeID CFErrorGetTypeID(void);

// The dictionary is copied. A null one is the same as an empty one; a null domain ends the process.
CFErrorRef CFErrorCreate(CFAllocatorRef allocator, CFErrorDomain domain, CFIndex code,
                         CFDictionaryRef userInfo);
CFErrorDomain CFErrorGetDomain(CFErrorRef err);
CFIndex CFErrorGetCode(CFErrorRef err);
// Never null.
CFDictionaryRef CFErrorCopyUserInfo(CFErrorRef err);
// The text that the error was given, else one that names its domain and code. Never null.
CFStringRef CFErrorCopyDescription(CFErrorRef err);

CF_EXTERN_C_END
