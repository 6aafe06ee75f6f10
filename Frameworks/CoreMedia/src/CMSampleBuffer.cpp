#include <CoreMedia/CMSampleBuffer.h>

#include <CoreFoundation/CFObject.h>

#include "Platform/Support/Ref.h"

struct opaqueCMSampleBuffer : cf::runtime::Object {
    opaqueCMSampleBuffer(CVImageBufferRef buffer, CMFormatDescriptionRef description,
                         const CMSampleTimingInfo& sampleTiming)
        : Object(classInfo()),
          imageBuffer(cf::retain(buffer)),
          formatDescription(cf::retain(description)),
          timing(sampleTiming)
    {}
    static const cf::runtime::Class& classInfo();

    const cf::Ref<CVImageBufferRef> imageBuffer;
    const cf::Ref<CMFormatDescriptionRef> formatDescription;
    const CMSampleTimingInfo timing;
};

// Not made of kCMTimeInvalid, whose file may be initialised later.
const CMSampleTimingInfo kCMTimingInfoInvalid = {};

const cf::runtime::Class& opaqueCMSampleBuffer::classInfo()
{
    static constinit const cf::runtime::Class info{"CMSampleBuffer",
                                                   cf::runtime::destroy<opaqueCMSampleBuffer>};
    return info;
}

CFTypeID CMSampleBufferGetTypeID(void)
{
    return cf::runtime::typeID<opaqueCMSampleBuffer>();
}

OSStatus CMSampleBufferCreateReadyWithImageBuffer(CFAllocatorRef, CVImageBufferRef imageBuffer,
                                                  CMVideoFormatDescriptionRef formatDescription,
                                                  const CMSampleTimingInfo* sampleTiming,
                                                  CMSampleBufferRef* sBufOut)
{
    if (!sBufOut) return kCMSampleBufferError_RequiredParameterMissing;
    *sBufOut = nullptr;
    if (!imageBuffer || !formatDescription || !sampleTiming)
        return kCMSampleBufferError_RequiredParameterMissing;
    if (!CMVideoFormatDescriptionMatchesImageBuffer(formatDescription, imageBuffer))
        return kCMSampleBufferError_InvalidMediaFormat;
    *sBufOut = cf::runtime::create<opaqueCMSampleBuffer>(imageBuffer, formatDescription, *sampleTiming);
    return *sBufOut ? OSStatus{noErr} : OSStatus{kCMSampleBufferError_AllocationFailed};
}

// There is no way to invalidate a sample buffer, nor to make one before its image is there.
Boolean CMSampleBufferIsValid(CMSampleBufferRef sbuf)
{
    return sbuf != nullptr;
}

Boolean CMSampleBufferDataIsReady(CMSampleBufferRef sbuf)
{
    return sbuf != nullptr;
}

CMItemCount CMSampleBufferGetNumSamples(CMSampleBufferRef sbuf)
{
    return sbuf ? 1 : 0;
}

CVImageBufferRef CMSampleBufferGetImageBuffer(CMSampleBufferRef sbuf)
{
    return sbuf->imageBuffer.get();
}

CMFormatDescriptionRef CMSampleBufferGetFormatDescription(CMSampleBufferRef sbuf)
{
    return sbuf->formatDescription.get();
}

CMTime CMSampleBufferGetPresentationTimeStamp(CMSampleBufferRef sbuf)
{
    return sbuf->timing.presentationTimeStamp;
}

CMTime CMSampleBufferGetDuration(CMSampleBufferRef sbuf)
{
    return sbuf->timing.duration;
}

OSStatus CMSampleBufferGetSampleTimingInfo(CMSampleBufferRef sbuf, CMItemCount sampleIndex,
                                           CMSampleTimingInfo* timingInfoOut)
{
    if (!sbuf || !timingInfoOut) return kCMSampleBufferError_RequiredParameterMissing;
    if (sampleIndex != 0) return kCMSampleBufferError_SampleIndexOutOfRange;
    *timingInfoOut = sbuf->timing;
    return noErr;
}
