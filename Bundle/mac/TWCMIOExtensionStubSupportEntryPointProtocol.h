#pragma once

#include <objc/NSObject.h>

// The one protocol that a stub is compiled against: the whole contract between stub and bundle.
@protocol TWCMIOExtensionStubSupportEntryPointProtocol
- (instancetype)init;
// Publishes the camera.
- (void)start;
// Does nothing: the camera ends with the process.
- (void)stop;
@end
