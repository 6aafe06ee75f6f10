#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#define CF_EXPORT extern
#ifdef __cplusplus
#define CF_EXTERN_C_BEGIN extern "C" {
#define CF_EXTERN_C_END }
#else
#define CF_EXTERN_C_BEGIN
#define CF_EXTERN_C_END
#endif

CF_EXTERN_C_BEGIN

typedef unsigned char Boolean;
typedef unsigned char UInt8;
typedef signed char SInt8;
typedef unsigned short UInt16;
typedef signed short SInt16;
typedef unsigned int UInt32;
typedef signed int SInt32;
typedef uint64_t UInt64;
typedef int64_t SInt64;
typedef float Float32;
typedef double Float64;
typedef SInt32 OSStatus;
typedef UInt32 FourCharCode;
typedef FourCharCode OSType;

enum { noErr = 0 };

typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFHashCode;
typedef signed long CFIndex;

typedef const void* CFTypeRef;
typedef CFTypeRef CFPropertyListRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFAllocator* CFAllocatorRef;

// The one allocator. There are no others here, so every allocator argument is this.
CF_EXPORT const CFAllocatorRef kCFAllocatorDefault;

// Every object: counted references, equality by value, a description. A null argument ends the process.

CFTypeID CFGetTypeID(CFTypeRef cf);
CFTypeRef CFRetain(CFTypeRef cf);
void CFRelease(CFTypeRef cf);
// LONG_MAX for an object that lives as long as the process.
CFIndex CFGetRetainCount(CFTypeRef cf);
Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);
CFHashCode CFHash(CFTypeRef cf);
// The text of a string, the digits of a number, the content of a collection, else type and address.
CFStringRef CFCopyDescription(CFTypeRef cf);

CF_EXTERN_C_END

#ifdef __cplusplus
static_assert(sizeof(CFIndex) == 8 && sizeof(CFTypeID) == 8, "the platform is LP64");
static_assert(sizeof(OSStatus) == 4 && sizeof(FourCharCode) == 4 && sizeof(Boolean) == 1,
              "widths of the ABI");
#else
_Static_assert(sizeof(CFIndex) == 8 && sizeof(CFTypeID) == 8, "the platform is LP64");
_Static_assert(sizeof(OSStatus) == 4 && sizeof(FourCharCode) == 4 && sizeof(Boolean) == 1,
               "widths of the ABI");
#endif
