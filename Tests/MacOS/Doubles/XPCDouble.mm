#include "Tests/MacOS/Doubles/XPCDouble.h"

#include "Tests/MacOS/Doubles/Calls.h"
#include "Tests/MacOS/Doubles/XPCLine.h"
#include "Tests/MacOS/Runtime/Runtime.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
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

// What a connection gives as the far end's object: passes on what is of the interface's protocol. Without a
// far end a message is lost, and one that wants a reply fails at once.
@interface PavoRemoteProxy : NSObject
- (instancetype)initWithConnection:(NSXPCConnection*)connection
                      errorHandler:(void (^)(NSError*))errorHandler
                     isSynchronous:(BOOL)isSynchronous;
- (id)forwardingTargetForSelector:(SEL)selector;
- (void)takeMessage:(const objc::Registers*)registers stack:(const void*)stack;
@end

@implementation PavoRemoteProxy {
    NSXPCConnection* _connection;
    void (^_errorHandler)(NSError*);
    BOOL _isSynchronous;
}

- (instancetype)initWithConnection:(NSXPCConnection*)connection
                      errorHandler:(void (^)(NSError*))errorHandler
                     isSynchronous:(BOOL)isSynchronous
{
    self = [super init];
    _connection = connection;
    _errorHandler = errorHandler;
    _isSynchronous = isSynchronous;
    return self;
}

- (id)forwardingTargetForSelector:(SEL)selector
{
    const auto* const protocol = record(_connection.remoteObjectInterface.protocol);
    if (!protocol || !objc::extendedTypes(protocol, sel_getName(selector)))
        objc::die("A message that the interface does not have: ", sel_getName(selector));
    pavo::test::recordCall(std::string("send ") + sel_getName(selector));
    return _connection.peer;
}

- (void)takeMessage:(const objc::Registers*)registers stack:(const void*)stack
{
    const auto* const protocol = record(_connection.remoteObjectInterface.protocol);
    const std::string types = objc::extendedTypes(protocol, static_cast<const char*>(registers->general[1]));
    if (!_connection.line) {
        if (types.find("@?") != std::string::npos && _errorHandler)
            _errorHandler([NSError errorWithDomain:@"NSCocoaErrorDomain" code:kInvalid userInfo:nil]);
        return;
    }
    objc::Invocation message(types.c_str(), *registers, stack);
    PavoAnswer* answer = nil;
    std::string blockTypes;
    if (void* const block = message.block(&blockTypes)) {
        answer = [[PavoAnswer alloc] initWithBlock:(__bridge id)block
                                             types:blockTypes
                                      errorHandler:_errorHandler
                                             queue:_connection.line->inbox()
                                     isSynchronous:_isSynchronous];
        message.replaceBlock((__bridge void*)[answer substitute]);
    }
    _connection.line->send(types, std::move(message), answer);
    if (_isSynchronous) [answer waitForIt];
}

@end

@interface NSXPCConnection ()
@property(atomic, strong) id exported;
@end

@implementation NSXPCConnection {
    NSXPCInterface* _remote;
    NSXPCInterface* _exportedInterface;
    std::shared_ptr<pavo::test::XPCLine> _line;
    std::atomic<bool> _wasResumed;
    std::atomic<bool> _wasInvalidated;
}

- (instancetype)init
{
    self = [super init];
    if (pavo::test::carriesMessages()) _line = std::make_shared<pavo::test::XPCLine>(self);
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
    _exportedInterface = interface;
}

- (NSXPCInterface*)exportedInterface
{
    return _exportedInterface;
}

- (void)setExportedObject:(id)object
{
    pavo::test::recordCall(object ? "setExportedObject" : "setExportedObject none");
    if (object && ![object conformsToProtocol:_exportedInterface.protocol])
        objc::die("The exported object is not of the exported interface's protocol");
    self.exported = object;
}

- (id)exportedObject
{
    return self.exported;
}

- (id)remoteObjectProxy
{
    return [[PavoRemoteProxy alloc] initWithConnection:self errorHandler:nil isSynchronous:NO];
}

- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError*))handler
{
    return [[PavoRemoteProxy alloc] initWithConnection:self errorHandler:handler isSynchronous:NO];
}

- (id)synchronousRemoteObjectProxyWithErrorHandler:(void (^)(NSError*))handler
{
    pavo::test::recordCall("synchronousRemoteObjectProxy");
    return [[PavoRemoteProxy alloc] initWithConnection:self errorHandler:handler isSynchronous:YES];
}

- (const std::shared_ptr<pavo::test::XPCLine>&)line
{
    return _line;
}

- (pid_t)processIdentifier
{
    return _line && _line->hasPeer() ? ::getpid() : self.peerProcess;
}

- (BOOL)isResumed
{
    return _wasResumed;
}

- (BOOL)isInvalidated
{
    return _wasInvalidated;
}

- (void)resume
{
    pavo::test::recordCall("connection resume");
    if (!_wasResumed.exchange(true)) keep(self);
    if (_line) _line->resume();
}

- (void)invalidate
{
    pavo::test::recordCall("connection invalidate");
    if (_line)
        _line->invalidate();
    else
        [self failWithInvalidation];
}

- (void)failWithInvalidation
{
    if (_wasInvalidated.exchange(true)) return;
    void (^const handler)(void) = self.invalidationHandler;
    if (handler) handler();
    self.invalidationHandler = nil;
    self.interruptionHandler = nil;
    self.exported = nil;
    self.peer = nil;
    letGo(self);
}

- (void)failWithInterruption
{
    void (^const handler)(void) = self.interruptionHandler;
    if (handler) handler();
}

@end

@implementation NSXPCListener {
    dispatch::Queue _queue;  // suspended until the listener is resumed
    std::atomic<bool> _wasResumed;
    std::atomic<bool> _wasInvalidated;
}

+ (NSXPCListener*)anonymousListener
{
    NSXPCListener* const listener = [[NSXPCListener alloc] init];
    listener->_port = nextPort++;
    listener->_queue = dispatch::Queue::serial("listener");
    dispatch_suspend(listener->_queue.get());
    pavo::test::recordCall("anonymousListener");
    const std::lock_guard lock(livingMutex);
    allListeners.push_back(listener);
    return listener;
}

- (NSXPCListenerEndpoint*)endpoint
{
    return [[NSXPCListenerEndpoint alloc] initWithPort:_port listener:self];
}

- (void)dealloc
{
    if (!_wasResumed) dispatch_resume(_queue.get());
}

- (BOOL)isResumed
{
    return _wasResumed;
}

- (BOOL)isInvalidated
{
    return _wasInvalidated;
}

- (void)resume
{
    pavo::test::recordCall("listener resume");
    if (_wasResumed.exchange(true)) return;
    if (!_wasInvalidated) keep(self);
    dispatch_resume(_queue.get());
}

- (void)invalidate
{
    pavo::test::recordCall("listener invalidate");
    _wasInvalidated = true;
    letGo(self);
    // Whoever waits is turned away.
    if (!_wasResumed.exchange(true)) dispatch_resume(_queue.get());
}

- (NSXPCConnection*)connectPeer:(id)peer
{
    NSXPCConnection* const connection = [[NSXPCConnection alloc] init];
    connection.peer = peer;
    [self ask:connection];
    return connection;
}

- (void)askFor:(NSXPCConnection*)connection
{
    dispatch::async(_queue.get(), [self, connection] { [self ask:connection]; });
}

- (void)ask:(NSXPCConnection*)connection
{
    const id<NSXPCListenerDelegate> delegate = self.delegate;
    const BOOL isAccepted = !_wasInvalidated && [delegate listener:self shouldAcceptNewConnection:connection];
    if (!isAccepted) [connection invalidate];
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
