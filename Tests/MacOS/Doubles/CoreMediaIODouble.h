#pragma once

#include "Platform/Foundation/NSUUID.h"
#include "Platform/Support/Ref.h"

#include <CoreMediaIO/CoreMediaIO.h>

#include <cstdint>
#include <vector>

// In place of the framework: keeps what it is given, and asks the sources what the framework would ask them,
// in the framework's order. Calls are recorded (Calls.h).

namespace pavo::test {

struct SentSample {
    cf::Ref<CMSampleBufferRef> sample;
    CMIOExtensionStreamDiscontinuityFlags discontinuity;
    std::uint64_t hostTimeNanoseconds;
};

}  // namespace pavo::test

@interface CMIOExtensionClient ()
- (instancetype)initWithID:(NSUUID*)clientID pid:(pid_t)pid;
@end

@interface CMIOExtensionStreamFormat ()
@property(nonatomic, readonly) CMFormatDescriptionRef formatDescription;
@property(nonatomic, readonly) CMTime maxFrameDuration;
@property(nonatomic, readonly) CMTime minFrameDuration;
@property(nonatomic, readonly) NSArray<NSDictionary*>* validFrameDurations;
@end

@interface CMIOExtensionPropertyState ()
@property(nonatomic, readwrite) id value;
@end

@interface CMIOExtensionProvider ()
@property(nonatomic, readonly) dispatch_queue_t clientQueue;
@property(nonatomic, readonly) BOOL isStarted;
@property(nonatomic, readonly) NSArray<CMIOExtensionDevice*>* devices;
@end

@interface CMIOExtensionDevice ()
@property(nonatomic, readonly) NSString* localizedName;
@property(nonatomic, readonly) NSUUID* deviceID;
@property(nonatomic, readonly) NSString* legacyDeviceID;
@property(nonatomic, readonly) NSArray<CMIOExtensionStream*>* streams;
@end

@interface CMIOExtensionStream ()
@property(nonatomic, readonly) NSString* localizedName;
@property(nonatomic, readonly) NSUUID* streamID;
@property(nonatomic, readonly) CMIOExtensionStreamDirection direction;
@property(nonatomic, readonly) CMIOExtensionStreamClockType clockType;
@property(atomic, readwrite, copy) NSArray<CMIOExtensionClient*>* streamingClients;
// What a client does: it is authorized, and started if it is the first; then it counts. False where the
// source refused.
- (BOOL)startClient:(CMIOExtensionClient*)client;
// The last one is stopped before it leaves the list.
- (void)stopClient:(CMIOExtensionClient*)client;
- (std::vector<pavo::test::SentSample>)sentSamples;
- (void)forgetSamples;
@end

namespace pavo::test {

// The one provider, nil where there is none.
CMIOExtensionProvider* provider();
CMIOExtensionClient* makeClient(pid_t pid);

}  // namespace pavo::test
