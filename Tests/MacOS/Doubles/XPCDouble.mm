#include "Tests/MacOS/Doubles/XPCDouble.h"

#include "Tests/MacOS/Doubles/Calls.h"
#include "Tests/MacOS/Runtime/Runtime.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <string>

namespace objc = pavo::test::objc;

namespace {

std::mutex livingMutex;
std::vector<__weak NSXPCListener*> allListeners;
std::vector<__weak NSXPCConnection*> allConnections;
// Resumed, and therefore kept.
std::vector<id> kept;
std::atomic<std::uint32_t> nextPort = 0x1200;
constexpr NSInteger kInvalid = 4099;

void keep(id object)
{
    const std::lock_guard lock(livingMutex);
    kept.push_back(object);
}

void letGo(id object)
{
    // The caller has a reference of its own, so the object does not go inside the lock.
    const std::lock_guard lock(livingMutex);
    std::erase(kept, object);
}

objc::ProtocolRecord* record(Protocol* protocol)
{
    return (__bridge objc::ProtocolRecord*)protocol;
}

void recordInterface(const char* setter, NSXPCInterface* interface)
{
    pavo::test::recordCall(std::string(setter) + " " + record(interface.protocol)->name);
}

template <typename T, typename WeakReferences>
std::vector<T> living(const WeakReferences& all)
{
    std::vector<T> result;
    const std::lock_guard lock(livingMutex);
    for (const auto& weak : all)
        if (const T object = weak) result.push_back(object);
    return result;
}

}  // namespace

// As the object of the layer below: the port's name at offset 24.
@interface PavoEndpointObject : NSObject {
@public
    std::uint64_t _reserved[2];
    std::uint32_t _port;
}
@end

@implementation PavoEndpointObject
@end

@implementation NSXPCInterface

+ (NSXPCInterface*)interfaceWithProtocol:(Protocol*)protocol
{
    const auto* const methods = record(protocol)->instanceMethods;
    for (std::uint32_t i = 0; methods && i < methods->count; ++i)
        if (!record(protocol)->extendedTypes || !record(protocol)->extendedTypes[i])
            objc::die("A protocol without extended types: ", record(protocol)->name);
    NSXPCInterface* const interface = [[NSXPCInterface alloc] init];
    interface->_protocol = protocol;
    return interface;
}

@end

@implementation NSXPCListenerEndpoint {
    PavoEndpointObject* _object;
}

- (instancetype)initWithPort:(std::uint32_t)port listener:(NSXPCListener*)listener
{
    self = [super init];
    _object = [[PavoEndpointObject alloc] init];
    _object->_port = port;
    _listener = listener;
    return self;
}

- (id)_endpoint
{
    return _object;
}

@end

// Takes the messages that reach nobody: those of the only service that may be absent.
@interface PavoNobody : NSObject
@end

@implementation PavoNobody

- (void)launchStudioIfNeeded
{}

- (void)getCommunicationVersionWithReply:(void (^)(std::uint64_t version))reply
{}

@end

// What a connection gives as the far end's object: passes on what is of the interface's protocol. Without a
// far end a message that wants a reply fails at once.
@interface PavoRemoteProxy : NSObject
- (instancetype)initWithConnection:(NSXPCConnection*)connection errorHandler:(void (^)(NSError*))errorHandler;
- (id)forwardingTargetForSelector:(SEL)selector;
@end

@implementation PavoRemoteProxy {
    NSXPCConnection* _connection;
    void (^_errorHandler)(NSError*);
}

- (instancetype)initWithConnection:(NSXPCConnection*)connection errorHandler:(void (^)(NSError*))errorHandler
{
    self = [super init];
    _connection = connection;
    _errorHandler = errorHandler;
    return self;
}

- (id)forwardingTargetForSelector:(SEL)selector
{
    const auto* const protocol = record(_connection.remoteObjectInterface.protocol);
    if (!protocol || !objc::extendedTypes(protocol, sel_getName(selector)))
        objc::die("A message that the interface does not have: ", sel_getName(selector));
    pavo::test::recordCall(std::string("send ") + sel_getName(selector));
    if (const id peer = _connection.peer) return peer;
    const bool hasReply = std::strstr(objc::extendedTypes(protocol, sel_getName(selector)), "@?");
    if (hasReply && _errorHandler)
        _errorHandler([NSError errorWithDomain:@"NSCocoaErrorDomain" code:kInvalid userInfo:nil]);
    return [[PavoNobody alloc] init];
}

@end

@implementation NSXPCConnection {
    NSXPCInterface* _remote;
    NSXPCInterface* _exported;
    id _exportedObject;
}

- (instancetype)init
{
    self = [super init];
    const std::lock_guard lock(livingMutex);
    allConnections.push_back(self);
    return self;
}

- (instancetype)initWithMachServiceName:(NSString*)name options:(NSXPCConnectionOptions)options
{
    self = [self init];
    _serviceName = name;
    _options = options;
    return self;
}

- (instancetype)initWithListenerEndpoint:(NSXPCListenerEndpoint*)endpoint
{
    self = [self init];
    _endpoint = endpoint;
    return self;
}

- (void)setRemoteObjectInterface:(NSXPCInterface*)interface
{
    recordInterface("setRemoteObjectInterface", interface);
    _remote = interface;
}

- (NSXPCInterface*)remoteObjectInterface
{
    return _remote;
}

- (void)setExportedInterface:(NSXPCInterface*)interface
{
    recordInterface("setExportedInterface", interface);
    _exported = interface;
}

- (NSXPCInterface*)exportedInterface
{
    return _exported;
}

- (void)setExportedObject:(id)object
{
    pavo::test::recordCall(object ? "setExportedObject" : "setExportedObject none");
    if (object && ![object conformsToProtocol:_exported.protocol])
        objc::die("The exported object is not of the exported interface's protocol");
    _exportedObject = object;
}

- (id)exportedObject
{
    return _exportedObject;
}

- (id)remoteObjectProxy
{
    return [[PavoRemoteProxy alloc] initWithConnection:self errorHandler:nil];
}

- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError*))handler
{
    return [[PavoRemoteProxy alloc] initWithConnection:self errorHandler:handler];
}

- (id)synchronousRemoteObjectProxyWithErrorHandler:(void (^)(NSError*))handler
{
    pavo::test::recordCall("synchronousRemoteObjectProxy");
    return [self remoteObjectProxyWithErrorHandler:handler];
}

- (pid_t)processIdentifier
{
    return self.peerProcess;
}

- (void)resume
{
    pavo::test::recordCall("connection resume");
    if (!_isResumed) keep(self);
    _isResumed = YES;
}

- (void)invalidate
{
    pavo::test::recordCall("connection invalidate");
    [self failWithInvalidation];
}

- (void)failWithInvalidation
{
    if (_isInvalidated) return;
    _isInvalidated = YES;
    void (^const handler)(void) = self.invalidationHandler;
    if (handler) handler();
    self.invalidationHandler = nil;
    self.interruptionHandler = nil;
    _exportedObject = nil;
    self.peer = nil;
    letGo(self);
}

- (void)failWithInterruption
{
    void (^const handler)(void) = self.interruptionHandler;
    if (handler) handler();
}

@end

@implementation NSXPCListener

+ (NSXPCListener*)anonymousListener
{
    NSXPCListener* const listener = [[NSXPCListener alloc] init];
    listener->_port = nextPort++;
    pavo::test::recordCall("anonymousListener");
    const std::lock_guard lock(livingMutex);
    allListeners.push_back(listener);
    return listener;
}

- (NSXPCListenerEndpoint*)endpoint
{
    return [[NSXPCListenerEndpoint alloc] initWithPort:_port listener:self];
}

- (void)resume
{
    pavo::test::recordCall("listener resume");
    if (!_isResumed) keep(self);
    _isResumed = YES;
}

- (void)invalidate
{
    pavo::test::recordCall("listener invalidate");
    letGo(self);
}

- (NSXPCConnection*)connectPeer:(id)peer
{
    NSXPCConnection* const connection = [[NSXPCConnection alloc] init];
    connection.peer = peer;
    const id<NSXPCListenerDelegate> delegate = self.delegate;
    const BOOL isAccepted = [delegate listener:self shouldAcceptNewConnection:connection];
    if (!isAccepted) [connection invalidate];
    return connection;
}

@end

namespace pavo::test {

std::vector<NSXPCListener*> listeners()
{
    return living<NSXPCListener*>(allListeners);
}

std::vector<NSXPCConnection*> connections()
{
    return living<NSXPCConnection*>(allConnections);
}

void endAllXPC()
{
    for (NSXPCConnection* const& connection : connections()) {
        // One that was never resumed must have been let go by now.
        if (!connection.isResumed) continue;
        connection.invalidationHandler = nil;
        connection.interruptionHandler = nil;
        [connection failWithInvalidation];
    }
    std::vector<id> dropped;
    const std::lock_guard lock(livingMutex);
    dropped.swap(kept);
    allListeners.clear();
    allConnections.clear();
}

}  // namespace pavo::test
