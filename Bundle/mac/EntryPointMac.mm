#include "Bundle/mac/TWCMIOExtensionStubSupportEntryPointProtocol.h"
#include "CMIOExtensionSupport/EntryPoint.h"

#include <Foundation/Foundation.h>

#include <memory>

// What a stub creates, by this name.
__attribute__((visibility("default")))
@interface TWCMIOExtensionSupportEntryPoint : NSObject<TWCMIOExtensionStubSupportEntryPointProtocol>
@end

@implementation TWCMIOExtensionSupportEntryPoint {
    std::shared_ptr<pavo::EntryPoint> _entryPoint;
}

- (instancetype)init
{
    _entryPoint = pavo::EntryPoint::create();
    return [super init];
}

- (void)start
{
    _entryPoint->start();
}

- (void)stop
{
    _entryPoint->stop();
}

@end
