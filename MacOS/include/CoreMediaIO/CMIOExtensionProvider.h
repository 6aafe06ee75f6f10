#pragma once

#include <CoreMediaIO/CMIOExtensionDevice.h>
#include <dispatch/dispatch.h>

@protocol CMIOExtensionProviderSource <NSObject>
- (BOOL)connectClient:(CMIOExtensionClient*)client error:(NSError**)outError;
- (void)disconnectClient:(CMIOExtensionClient*)client;
@property(atomic, readonly, copy) NSSet<CMIOExtensionProperty>* availableProperties;
- (CMIOExtensionProviderProperties*)providerPropertiesForProperties:(NSSet<CMIOExtensionProperty>*)properties
                                                              error:(NSError**)outError;
- (BOOL)setProviderProperties:(CMIOExtensionProviderProperties*)providerProperties error:(NSError**)outError;
@end

// One per process.
@interface CMIOExtensionProvider : NSObject
+ (void)startServiceWithProvider:(CMIOExtensionProvider*)provider;
// Without a queue it makes a serial one of its own.
- (instancetype)initWithSource:(id<CMIOExtensionProviderSource>)source
                   clientQueue:(dispatch_queue_t)clientQueue;
@property(nonatomic, readonly, weak) id<CMIOExtensionProviderSource> source;
- (BOOL)addDevice:(CMIOExtensionDevice*)device error:(NSError**)outError;
@end
