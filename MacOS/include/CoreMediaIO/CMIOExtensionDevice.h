#pragma once

#include <CoreMediaIO/CMIOExtensionStream.h>

@protocol CMIOExtensionDeviceSource <NSObject>
@property(readonly, copy) NSSet<CMIOExtensionProperty>* availableProperties;
- (CMIOExtensionDeviceProperties*)devicePropertiesForProperties:(NSSet<CMIOExtensionProperty>*)properties
                                                          error:(NSError**)outError;
- (BOOL)setDeviceProperties:(CMIOExtensionDeviceProperties*)deviceProperties error:(NSError**)outError;
@end

@interface CMIOExtensionDevice : NSObject
- (instancetype)initWithLocalizedName:(NSString*)localizedName
                             deviceID:(NSUUID*)deviceID
                       legacyDeviceID:(NSString*)legacyDeviceID
                               source:(id<CMIOExtensionDeviceSource>)source;
@property(nonatomic, readonly, weak) id<CMIOExtensionDeviceSource> source;
- (BOOL)addStream:(CMIOExtensionStream*)stream error:(NSError**)outError;
@end
