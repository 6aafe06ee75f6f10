#pragma once

#include <CoreMedia/CoreMedia.h>
#include <Foundation/Foundation.h>

typedef NSString* CMIOExtensionProperty;

FOUNDATION_EXPORT CMIOExtensionProperty const CMIOExtensionPropertyProviderManufacturer;
FOUNDATION_EXPORT CMIOExtensionProperty const CMIOExtensionPropertyDeviceModel;
FOUNDATION_EXPORT CMIOExtensionProperty const CMIOExtensionPropertyDeviceTransportType;
FOUNDATION_EXPORT CMIOExtensionProperty const CMIOExtensionPropertyDeviceCanBeDefaultInputDevice;
FOUNDATION_EXPORT CMIOExtensionProperty const CMIOExtensionPropertyStreamActiveFormatIndex;
FOUNDATION_EXPORT CMIOExtensionProperty const CMIOExtensionPropertyStreamFrameDuration;

@interface CMIOExtensionPropertyState<__covariant ObjectType> : NSObject
+ (instancetype)new __attribute__((unavailable));
- (instancetype)init __attribute__((unavailable));
- (instancetype)initWithValue:(ObjectType)value;
@property(nonatomic, readonly) ObjectType value;
@end

typedef NSDictionary<CMIOExtensionProperty, CMIOExtensionPropertyState*> CMIOExtensionPropertyStates;

// Setting nil takes a property out.
@interface CMIOExtensionProviderProperties : NSObject
+ (instancetype)new __attribute__((unavailable));
- (instancetype)init __attribute__((unavailable));
- (instancetype)initWithDictionary:(CMIOExtensionPropertyStates*)propertiesDictionary
    __attribute__((objc_designated_initializer));
@property(nonatomic, strong) NSString* manufacturer;
- (void)setPropertyState:(CMIOExtensionPropertyState*)state forProperty:(CMIOExtensionProperty)property;
@property(nonatomic, copy) CMIOExtensionPropertyStates* propertiesDictionary;
@end

@interface CMIOExtensionDeviceProperties : NSObject
+ (instancetype)new __attribute__((unavailable));
- (instancetype)init __attribute__((unavailable));
- (instancetype)initWithDictionary:(CMIOExtensionPropertyStates*)propertiesDictionary
    __attribute__((objc_designated_initializer));
@property(nonatomic, strong) NSString* model;
@property(nonatomic, strong) NSNumber* transportType;
- (void)setPropertyState:(CMIOExtensionPropertyState*)state forProperty:(CMIOExtensionProperty)property;
@property(nonatomic, copy) CMIOExtensionPropertyStates* propertiesDictionary;
@end

@interface CMIOExtensionStreamProperties : NSObject
+ (instancetype)new __attribute__((unavailable));
- (instancetype)init __attribute__((unavailable));
- (instancetype)initWithDictionary:(CMIOExtensionPropertyStates*)propertiesDictionary
    __attribute__((objc_designated_initializer));
@property(nonatomic, strong) NSNumber* activeFormatIndex;
// A time, as CMTimeCopyAsDictionary writes it.
@property(nonatomic, strong) NSDictionary* frameDuration;
- (void)setPropertyState:(CMIOExtensionPropertyState*)state forProperty:(CMIOExtensionProperty)property;
@property(nonatomic, copy) CMIOExtensionPropertyStates* propertiesDictionary;
@end
