#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef UInt32 CFStringEncoding;

// The encodings that are understood. A function that is given another one answers null or false.
enum {
    kCFStringEncodingASCII = 0x0600,
    kCFStringEncodingUTF8 = 0x08000100,
};

// A constant string: one object per text, which lives as long as the process.
#define CFSTR(cStr) __CFStringMakeConstantString("" cStr "")
CFStringRef __CFStringMakeConstantString(const char* cStr);

CFTypeID CFStringGetTypeID(void);

// Null where the bytes are not of that encoding.
CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char* cStr, CFStringEncoding encoding);
// The bytes may hold NUL. An external representation may start with a byte order mark, which is left out.
CFStringRef CFStringCreateWithBytes(CFAllocatorRef alloc, const UInt8* bytes, CFIndex numBytes,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);

// In UTF-16 code units.
CFIndex CFStringGetLength(CFStringRef theString);
// Bytes that suffice for `length` UTF-16 code units in the encoding, without a terminating NUL; -1 for an
// encoding that is not understood.
CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);

// Copies the text and a NUL. False where it does not fit, or has characters that the encoding has not.
Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                           CFStringEncoding encoding);
// The text itself, valid as long as the string; null where the encoding cannot show it so, and where the
// text holds NUL.
const char* CFStringGetCStringPtr(CFStringRef theString, CFStringEncoding encoding);

CF_EXTERN_C_END
