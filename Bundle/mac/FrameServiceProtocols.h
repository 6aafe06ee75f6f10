#pragma once

#include <CoreMedia/CoreMedia.h>
#include <Foundation/Foundation.h>
#include <IOSurface/IOSurfaceObjC.h>

// The protocols of the frame service as the system reads them, with the extended types of their methods. The
// stored names are those that the system's look-up makes of "CMIOExtensionSupport.<name>", and they print so.

__attribute__((objc_runtime_name("_TtP20CMIOExtensionSupport25VideoFrameConsumerService_")))
@protocol VideoFrameConsumerService<NSObject>
// "Recieve" is how the wire spells it.
- (void)didRecieveRawFrame:(IOSurface*)surface timingInfo:(CMSampleTimingInfo)timingInfo;
- (void)targetFPSChangedTo:(double)framesPerSecond;
@end

__attribute__((objc_runtime_name("_TtP20CMIOExtensionSupport25VideoFrameProducerService_")))
@protocol VideoFrameProducerService<NSObject>
- (void)subscribeToVideoFrames;
- (void)unsubscribeFromVideoFrames;
@end

__attribute__((objc_runtime_name("_TtP20CMIOExtensionSupport40VideoFrameProducerServiceReportReceiving_")))
@protocol VideoFrameProducerServiceReportReceiving<VideoFrameProducerService>
- (void)subconsumerSubscriptionWithPID:(pid_t)pid isSubscribedChangedTo:(BOOL)isSubscribed;
@end
