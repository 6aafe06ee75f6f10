#include "Bundle/mac/FrameServiceProtocols.h"
#include "Bundle/mac/HelperServiceProtocol.h"
#include "CMIOExtensionSupport/BosunServiceProtocol.h"
#include "CMIOExtensionSupport/VideoFrameService.h"
#include "Platform/XPC/mac/XPCRuntimeProtocol.h"

#include <utility>

// What the producer's messages reach, in the place of the camera's end of the frame service.
@interface PavoVideoFrameConsumer : NSObject <VideoFrameConsumerService>
- (instancetype)init __attribute__((unavailable));
- (instancetype)initWithObject:(xpc::ExportedObject)object __attribute__((objc_designated_initializer));
@end

@implementation PavoVideoFrameConsumer {
    xpc::ExportedObject _object;
}

- (instancetype)initWithObject:(xpc::ExportedObject)object
{
    self = [super init];
    if (self) _object = std::move(object);
    return self;
}

- (void)didRecieveRawFrame:(IOSurface*)surface timingInfo:(CMSampleTimingInfo)timingInfo
{
    xpc::receive(_object, _cmd, (__bridge IOSurfaceRef)surface, timingInfo);
}

- (void)targetFPSChangedTo:(double)framesPerSecond
{
    xpc::receive(_object, _cmd, framesPerSecond);
}

@end

namespace {

id makeConsumer(xpc::ExportedObject object)
{
    return [[PavoVideoFrameConsumer alloc] initWithObject:std::move(object)];
}

constexpr xpc::RuntimeProtocol kProtocols[] = {
    xpc::bindProtocol<pavo::VideoFrameConsumerService>([] { return @protocol(VideoFrameConsumerService); },
                                                       makeConsumer),
    xpc::bindProtocol<pavo::VideoFrameProducerService>([] { return @protocol(VideoFrameProducerService); }),
    xpc::bindProtocol<pavo::VideoFrameProducerServiceReportReceiving>(
        [] { return @protocol(VideoFrameProducerServiceReportReceiving); }),
    xpc::bindProtocol<pavo::BosunServiceProtocol>([] { return @protocol(BosunServiceProtocol); }),
};

}  // namespace

constinit const std::span<const xpc::RuntimeProtocol> xpc::runtimeProtocols = kProtocols;
