#pragma once

#include <CoreMediaIO/CMIOExtensionProperties.h>

typedef NSInteger CMIOExtensionStreamDirection;
enum : CMIOExtensionStreamDirection {
    CMIOExtensionStreamDirectionSource = 0,
    CMIOExtensionStreamDirectionSink = 1,
};

typedef NSInteger CMIOExtensionStreamClockType;
enum : CMIOExtensionStreamClockType {
    CMIOExtensionStreamClockTypeHostTime = 0,
    CMIOExtensionStreamClockTypeLinkedCoreAudioDeviceUID = 1,
    CMIOExtensionStreamClockTypeCustom = 2,
};

typedef uint32_t CMIOExtensionStreamDiscontinuityFlags;
enum : CMIOExtensionStreamDiscontinuityFlags {
    CMIOExtensionStreamDiscontinuityFlagNone = 0,
    CMIOExtensionStreamDiscontinuityFlagUnknown = 1 << 0,
    CMIOExtensionStreamDiscontinuityFlagTime = 1 << 1,
    CMIOExtensionStreamDiscontinuityFlagSampleDropped = 1 << 6,
};

// One process that uses the camera.
@interface CMIOExtensionClient : NSObject
@property(nonatomic, readonly, copy) NSUUID* clientID;
@property(nonatomic, readonly) pid_t pid;
@end

@interface CMIOExtensionStreamFormat : NSObject
// The longest duration comes first.
- (instancetype)initWithFormatDescription:(CMFormatDescriptionRef)formatDescription
                         maxFrameDuration:(CMTime)maxFrameDuration
                         minFrameDuration:(CMTime)minFrameDuration
                      validFrameDurations:(NSArray<NSDictionary*>*)validFrameDurations;
@end

@protocol CMIOExtensionStreamSource <NSObject>
@property(atomic, readonly) NSArray<CMIOExtensionStreamFormat*>* formats;
@property(atomic, readonly, copy) NSSet<CMIOExtensionProperty>* availableProperties;
- (CMIOExtensionStreamProperties*)streamPropertiesForProperties:(NSSet<CMIOExtensionProperty>*)properties
                                                          error:(NSError**)outError;
- (BOOL)setStreamProperties:(CMIOExtensionStreamProperties*)streamProperties error:(NSError**)outError;
- (BOOL)authorizedToStartStreamForClient:(CMIOExtensionClient*)client;
- (BOOL)startStreamAndReturnError:(NSError**)outError;
- (BOOL)stopStreamAndReturnError:(NSError**)outError;
@end

@interface CMIOExtensionStream : NSObject
- (instancetype)initWithLocalizedName:(NSString*)localizedName
                             streamID:(NSUUID*)streamID
                            direction:(CMIOExtensionStreamDirection)direction
                            clockType:(CMIOExtensionStreamClockType)clockType
                               source:(id<CMIOExtensionStreamSource>)source;
@property(nonatomic, readonly, weak) id<CMIOExtensionStreamSource> source;
// Can be observed.
@property(atomic, readonly, copy) NSArray<CMIOExtensionClient*>* streamingClients;
- (void)sendSampleBuffer:(CMSampleBufferRef)sampleBuffer
            discontinuity:(CMIOExtensionStreamDiscontinuityFlags)discontinuity
    hostTimeInNanoseconds:(uint64_t)hostTimeInNanoseconds;
@end
