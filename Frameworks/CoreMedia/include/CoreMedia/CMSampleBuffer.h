#pragma once

#include <CoreMedia/CMFormatDescription.h>
#include <CoreMedia/CMTime.h>

CF_EXTERN_C_BEGIN

// One image with its format and its timing. Immutable.
typedef struct opaqueCMSampleBuffer* CMSampleBufferRef;

enum {
    kCMSampleBufferError_AllocationFailed = -12730,
    kCMSampleBufferError_RequiredParameterMissing = -12731,
    kCMSampleBufferError_SampleIndexOutOfRange = -12734,
    kCMSampleBufferError_InvalidMediaFormat = -12743,
};

typedef struct {
    CMTime duration;  // invalid: not known
    CMTime presentationTimeStamp;
    CMTime decodeTimeStamp;  // invalid: decoded in the order of presentation
} CMSampleTimingInfo;

#ifdef __cplusplus
static_assert(sizeof(CMSampleTimingInfo) == 72 && alignof(CMSampleTimingInfo) == 4, "layout of the ABI");
#else
_Static_assert(sizeof(CMSampleTimingInfo) == 72 && _Alignof(CMSampleTimingInfo) == 4, "layout of the ABI");
#endif

CF_EXPORT const CMSampleTimingInfo kCMTimingInfoInvalid;

CFTypeID CMSampleBufferGetTypeID(void);

// The description must match the buffer, else kCMSampleBufferError_InvalidMediaFormat. A failure writes null.
OSStatus CMSampleBufferCreateReadyWithImageBuffer(CFAllocatorRef allocator, CVImageBufferRef imageBuffer,
                                                  CMVideoFormatDescriptionRef formatDescription,
                                                  const CMSampleTimingInfo* sampleTiming,
                                                  CMSampleBufferRef* sBufOut);

Boolean CMSampleBufferIsValid(CMSampleBufferRef sbuf);
Boolean CMSampleBufferDataIsReady(CMSampleBufferRef sbuf);
CMItemCount CMSampleBufferGetNumSamples(CMSampleBufferRef sbuf);
CVImageBufferRef CMSampleBufferGetImageBuffer(CMSampleBufferRef sbuf);
CMFormatDescriptionRef CMSampleBufferGetFormatDescription(CMSampleBufferRef sbuf);
CMTime CMSampleBufferGetPresentationTimeStamp(CMSampleBufferRef sbuf);
CMTime CMSampleBufferGetDuration(CMSampleBufferRef sbuf);
OSStatus CMSampleBufferGetSampleTimingInfo(CMSampleBufferRef sbuf, CMItemCount sampleIndex,
                                           CMSampleTimingInfo* timingInfoOut);

CF_EXTERN_C_END
