// What C++ code cannot show: that the declarations are C.
#include <CoreMedia/CoreMedia.h>

Float64 secondsFromC(void);

Float64 secondsFromC(void)
{
    const CMSampleTimingInfo timing = {kCMTimeZero, CMTimeMake(3, 2), kCMTimeInvalid};
    return CMTIME_IS_NUMERIC(timing.presentationTimeStamp) ? CMTimeGetSeconds(timing.presentationTimeStamp)
                                                           : 0;
}
