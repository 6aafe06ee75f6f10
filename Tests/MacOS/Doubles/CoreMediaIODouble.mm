#include "Tests/MacOS/Doubles/CoreMediaIODouble.h"

#include "Tests/MacOS/Doubles/Calls.h"
#include "Tests/MacOS/Doubles/FoundationDouble.h"
#include "Tests/MacOS/Runtime/Runtime.h"

#include <mutex>
#include <string>

namespace objc = pavo::test::objc;
using pavo::test::makeArray;
using pavo::test::objectsIn;
using pavo::test::recordCall;

namespace {

__weak CMIOExtensionProvider* sharedProvider;

std::string text(NSString* string)
{
    return string.UTF8String;
}

std::string className(id object)
{
    return object ? class_getName([object class]) : "nil";
}

// The array with the object at its end; nil, with an error, where it is nil or in the array already.
NSArray* addedOnce(NSArray* array, id object, NSError** outError)
{
    auto objects = objectsIn(array);
    for (id other : objects)
        if (other == object) object = nil;
    if (!object) {
        if (outError) *outError = [NSError errorWithDomain:@"NSOSStatusErrorDomain" code:-50 userInfo:nil];
        return nil;
    }
    objects.push_back(object);
    return makeArray(objects);
}

void requireSource(id source)
{
    if (!source) objc::die("There must be a source");
}

}  // namespace

@implementation CMIOExtensionClient

- (instancetype)initWithID:(NSUUID*)clientID pid:(pid_t)pid
{
    self = [super init];
    _clientID = clientID;
    _pid = pid;
    return self;
}

@end

@implementation CMIOExtensionStreamFormat {
    cf::Ref<CMFormatDescriptionRef> _description;
}

- (instancetype)initWithFormatDescription:(CMFormatDescriptionRef)formatDescription
                         maxFrameDuration:(CMTime)maxFrameDuration
                         minFrameDuration:(CMTime)minFrameDuration
                      validFrameDurations:(NSArray<NSDictionary*>*)validFrameDurations
{
    self = [super init];
    _description = cf::retain(formatDescription);
    _maxFrameDuration = maxFrameDuration;
    _minFrameDuration = minFrameDuration;
    _validFrameDurations = validFrameDurations;
    return self;
}

- (CMFormatDescriptionRef)formatDescription
{
    return _description.get();
}

@end

@implementation CMIOExtensionProvider

+ (void)startServiceWithProvider:(CMIOExtensionProvider*)provider
{
    if (provider != sharedProvider) objc::die("Not the provider of this process");
    recordCall("startServiceWithProvider");
    provider->_isStarted = YES;
}

- (instancetype)initWithSource:(id<CMIOExtensionProviderSource>)source
                   clientQueue:(dispatch_queue_t)clientQueue
{
    requireSource(source);
    if (sharedProvider) objc::die("There should be only one CMIOProvider per extension.");
    self = [super init];
    _source = source;
    _clientQueue = clientQueue;
    _devices = makeArray({});
    sharedProvider = self;
    recordCall("provider init " + className(source) + (clientQueue ? " queue" : " nil"));
    return self;
}

- (BOOL)addDevice:(CMIOExtensionDevice*)device error:(NSError**)outError
{
    recordCall("addDevice");
    NSArray* const devices = addedOnce(_devices, device, outError);
    if (!devices) return NO;
    _devices = devices;
    return YES;
}

@end

@implementation CMIOExtensionDevice

- (instancetype)initWithLocalizedName:(NSString*)localizedName
                             deviceID:(NSUUID*)deviceID
                       legacyDeviceID:(NSString*)legacyDeviceID
                               source:(id<CMIOExtensionDeviceSource>)source
{
    requireSource(source);
    self = [super init];
    _localizedName = localizedName;
    _deviceID = deviceID;
    _legacyDeviceID = legacyDeviceID;
    _source = source;
    _streams = makeArray({});
    recordCall("device init " + text(localizedName) + ", " + text(deviceID.UUIDString) + ", " +
               text(legacyDeviceID) + ", " + className(source));
    return self;
}

- (BOOL)addStream:(CMIOExtensionStream*)stream error:(NSError**)outError
{
    recordCall("addStream");
    NSArray* const streams = addedOnce(_streams, stream, outError);
    if (!streams) return NO;
    _streams = streams;
    return YES;
}

@end

@implementation CMIOExtensionStream {
    std::mutex _mutex;
    NSArray<CMIOExtensionClient*>* _clients;
    std::vector<pavo::test::SentSample> _samples;
}

- (instancetype)initWithLocalizedName:(NSString*)localizedName
                             streamID:(NSUUID*)streamID
                            direction:(CMIOExtensionStreamDirection)direction
                            clockType:(CMIOExtensionStreamClockType)clockType
                               source:(id<CMIOExtensionStreamSource>)source
{
    requireSource(source);
    self = [super init];
    _localizedName = localizedName;
    _streamID = streamID;
    _direction = direction;
    _clockType = clockType;
    _source = source;
    _clients = makeArray({});
    recordCall("stream init " + text(localizedName) + ", direction " + std::to_string(direction) +
               ", clock " + std::to_string(clockType) + ", " + className(source));
    return self;
}

- (void)dealloc
{
    pavo::test::requireNoObservers((__bridge const void*)self);
}

- (NSArray<CMIOExtensionClient*>*)streamingClients
{
    const std::lock_guard lock(_mutex);
    return _clients;
}

- (void)setStreamingClients:(NSArray<CMIOExtensionClient*>*)clients
{
    {
        const std::lock_guard lock(_mutex);
        _clients = clients;
    }
    pavo::test::tellObservers(self, @"streamingClients", clients);
}

- (BOOL)startClient:(CMIOExtensionClient*)client
{
    const id<CMIOExtensionStreamSource> source = _source;
    if (![source authorizedToStartStreamForClient:client]) return NO;
    auto clients = objectsIn(self.streamingClients);
    NSError* error = nil;
    if (clients.empty() && ![source startStreamAndReturnError:&error]) return NO;
    clients.push_back(client);
    self.streamingClients = makeArray(clients);
    return YES;
}

- (void)stopClient:(CMIOExtensionClient*)client
{
    const id<CMIOExtensionStreamSource> source = _source;
    auto clients = objectsIn(self.streamingClients);
    if (clients.size() == 1 && ![source stopStreamAndReturnError:nil]) objc::die("A stream did not stop");
    std::erase(clients, client);
    self.streamingClients = makeArray(clients);
}

- (void)sendSampleBuffer:(CMSampleBufferRef)sampleBuffer
            discontinuity:(CMIOExtensionStreamDiscontinuityFlags)discontinuity
    hostTimeInNanoseconds:(uint64_t)hostTimeInNanoseconds
{
    const std::lock_guard lock(_mutex);
    _samples.push_back({cf::retain(sampleBuffer), discontinuity, hostTimeInNanoseconds});
}

- (std::vector<pavo::test::SentSample>)sentSamples
{
    const std::lock_guard lock(_mutex);
    return _samples;
}

- (void)forgetSamples
{
    const std::lock_guard lock(_mutex);
    _samples.clear();
}

@end

namespace pavo::test {

CMIOExtensionProvider* provider()
{
    return sharedProvider;
}

CMIOExtensionClient* makeClient(pid_t pid)
{
    return [[CMIOExtensionClient alloc] initWithID:[NSUUID UUID] pid:pid];
}

}  // namespace pavo::test
