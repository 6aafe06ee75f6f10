#pragma once

#include <CoreMedia/CMBase.h>

CF_EXTERN_C_BEGIN

typedef int64_t CMTimeValue;
typedef int32_t CMTimeScale;
#define kCMTimeMaxTimescale 0x7fffffffL
typedef int64_t CMTimeEpoch;

typedef uint32_t CMTimeFlags;
enum {
    kCMTimeFlags_Valid = 1u << 0,
    kCMTimeFlags_HasBeenRounded = 1u << 1,
    kCMTimeFlags_PositiveInfinity = 1u << 2,
    kCMTimeFlags_NegativeInfinity = 1u << 3,
    kCMTimeFlags_Indefinite = 1u << 4,
    kCMTimeFlags_ImpliedValueFlagsMask =
        kCMTimeFlags_PositiveInfinity | kCMTimeFlags_NegativeInfinity | kCMTimeFlags_Indefinite,
};

// `value` / `timescale` seconds. Packed, and without a tag, because both are part of the type's encoding.
#pragma pack(push, 4)
typedef struct {
    CMTimeValue value;
    CMTimeScale timescale;
    CMTimeFlags flags;
    CMTimeEpoch epoch;
} CMTime;
#pragma pack(pop)

#ifdef __cplusplus
static_assert(sizeof(CMTime) == 24 && alignof(CMTime) == 4, "layout of the ABI");
#else
_Static_assert(sizeof(CMTime) == 24 && _Alignof(CMTime) == 4, "layout of the ABI");
#endif

#define CMTIME_IS_VALID(time) ((Boolean)(((time).flags & kCMTimeFlags_Valid) != 0))
#define CMTIME_IS_INVALID(time) (!CMTIME_IS_VALID(time))
#define CMTIME_IS_POSITIVE_INFINITY(time)                                                                    \
    ((Boolean)(CMTIME_IS_VALID(time) && ((time).flags & kCMTimeFlags_PositiveInfinity) != 0))
#define CMTIME_IS_NEGATIVE_INFINITY(time)                                                                    \
    ((Boolean)(CMTIME_IS_VALID(time) && ((time).flags & kCMTimeFlags_NegativeInfinity) != 0))
#define CMTIME_IS_INDEFINITE(time)                                                                           \
    ((Boolean)(CMTIME_IS_VALID(time) && ((time).flags & kCMTimeFlags_Indefinite) != 0))
#define CMTIME_IS_NUMERIC(time)                                                                              \
    ((Boolean)(((time).flags & (kCMTimeFlags_Valid | kCMTimeFlags_ImpliedValueFlagsMask)) ==                 \
               kCMTimeFlags_Valid))
#define CMTIME_HAS_BEEN_ROUNDED(time)                                                                        \
    ((Boolean)(CMTIME_IS_NUMERIC(time) && ((time).flags & kCMTimeFlags_HasBeenRounded) != 0))

CF_EXPORT const CMTime kCMTimeInvalid;  // all zero
CF_EXPORT const CMTime kCMTimeIndefinite;
CF_EXPORT const CMTime kCMTimePositiveInfinity;
CF_EXPORT const CMTime kCMTimeNegativeInfinity;
CF_EXPORT const CMTime kCMTimeZero;

CMTime CMTimeMake(int64_t value, int32_t timescale);
CMTime CMTimeMakeWithEpoch(int64_t value, int32_t timescale, int64_t epoch);
// Truncates toward zero. A value that does not fit halves the time scale until it does. A time that reads
// back as other seconds is marked as rounded. A time scale below 1 gives an invalid time.
CMTime CMTimeMakeWithSeconds(Float64 seconds, int32_t preferredTimescale);
// Not a number for an invalid or indefinite time. The epoch does not count.
Float64 CMTimeGetSeconds(CMTime time);

// The result has the least common multiple of both time scales, or the greatest time scale there is, with
// halves rounded away from zero. Times of two different epochs, neither of them 0, give an invalid time.
CMTime CMTimeAdd(CMTime lhs, CMTime rhs);
CMTime CMTimeSubtract(CMTime lhs, CMTime rhs);
// -1, 0 or 1. In ascending order: negative infinity, numbers (by epoch, then by value), indefinite, positive
// infinity, invalid.
int32_t CMTimeCompare(CMTime time1, CMTime time2);

// A time as a dictionary of numbers, for interfaces that take objects only. Null where memory is out.
CF_EXPORT const CFStringRef kCMTimeValueKey;
CF_EXPORT const CFStringRef kCMTimeScaleKey;
CF_EXPORT const CFStringRef kCMTimeEpochKey;
CF_EXPORT const CFStringRef kCMTimeFlagsKey;
CFDictionaryRef CMTimeCopyAsDictionary(CMTime time, CFAllocatorRef allocator);
// Invalid where one of the numbers is missing, and for null.
CMTime CMTimeMakeFromDictionary(CFDictionaryRef dictionaryRepresentation);

CF_EXTERN_C_END
