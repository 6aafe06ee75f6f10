#include "Tests/MacOS/Doubles/XPCLine.h"

#include "Tests/MacOS/Doubles/SystemDouble.h"
#include "Tests/MacOS/Doubles/XPCDouble.h"
#include "Tests/MacOS/Runtime/Blocks.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <utility>

namespace objc = pavo::test::objc;

namespace {

constexpr NSInteger kInterrupted = 4097;
constexpr NSInteger kInvalid = 4099;

std::atomic<bool> isCarrying = false;

}  // namespace

@implementation PavoAnswer {
    id _block;
    std::string _types;
    void (^_errorHandler)(NSError*);
    dispatch::Queue _queue;
    BOOL _isSynchronous;
    std::atomic<bool> _isSettled;
    std::promise<std::function<void()>> _outcome;
}

- (instancetype)initWithBlock:(id)block
                        types:(const std::string&)types
                 errorHandler:(void (^)(NSError*))errorHandler
                        queue:(const dispatch::Queue&)queue
                isSynchronous:(BOOL)isSynchronous
{
    self = [super init];
    _block = block;
    _types = types;
    _errorHandler = errorHandler;
    _queue = queue;
    _isSynchronous = isSynchronous;
    return self;
}

- (id)substitute
{
    void (^const capturing)(void) = ^{
      (void)self;
    };
    const id block = (__bridge_transfer id)_Block_copy((__bridge void*)capturing);
    objc::takeCallsOf((__bridge void*)block);
    return block;
}

- (void)takeAnswer:(const objc::Registers*)registers stack:(const void*)stack
{
    if (_isSettled.exchange(true)) return;
    const auto answer = std::make_shared<objc::Invocation>(_types.c_str(), *registers, stack);
    [self settle:[answer, block = _block] { answer->callBlock((__bridge void*)block); }];
}

- (void)failWithCode:(NSInteger)code
{
    if (_isSettled.exchange(true)) return;
    [self settle:[code, handler = _errorHandler] {
        if (handler) handler([NSError errorWithDomain:@"NSCocoaErrorDomain" code:code userInfo:nil]);
    }];
}

- (void)settle:(std::function<void()>)outcome
{
    _block = nil;
    _errorHandler = nil;
    if (_isSynchronous)
        _outcome.set_value(std::move(outcome));
    else
        dispatch::async(_queue.get(), std::move(outcome));
}

- (void)waitForIt
{
    _outcome.get_future().get()();
}

@end

namespace pavo::test {

namespace {

NSXPCListener* listenerOf(NSXPCConnection* connection)
{
    if (NSXPCListenerEndpoint* const endpoint = connection.endpoint)
        return endpoint.listener.isInvalidated ? nil : endpoint.listener;
    if (!connection.serviceName) return nil;  // it was accepted, and its peer is gone
    mach_port_t port = MACH_PORT_NULL;
    for (const auto& registration : registrations())
        if (registration.name == connection.serviceName.UTF8String) port = registration.port;
    for (NSXPCListener* const& listener : listeners())
        if (listener.port == port && !listener.isInvalidated) return listener;
    return nil;
}

}  // namespace

void setCarriesMessages(bool carries)
{
    isCarrying = carries;
}

bool carriesMessages()
{
    return isCarrying;
}

dispatch::Queue XPCLine::suspendedQueue()
{
    auto queue = dispatch::Queue::serial("connection");
    dispatch_suspend(queue.get());
    return queue;
}

XPCLine::~XPCLine()
{
    if (isResumed_) return;
    dispatch_resume(inbox_.get());
    dispatch_resume(outbox_.get());
}

void XPCLine::resume()
{
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(isResumed_, true)) return;
    }
    // Nobody is dialled before there is a message, but a name that nobody has is told at once.
    const bool canReachItsPeer = hasPeer() || listenerOf(connection_);
    dispatch_resume(inbox_.get());
    dispatch_resume(outbox_.get());
    if (!canReachItsPeer) invalidate();
}

void XPCLine::invalidate()
{
    bool wasResumed = false;
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(isOver_, true)) return;
        wasResumed = std::exchange(isResumed_, true);
    }
    failAnswers(kInvalid);
    // After the messages from before.
    dispatch::async(outbox_.get(), [self = shared_from_this()] {
        std::shared_ptr<XPCLine> peer;
        {
            const std::lock_guard lock(self->mutex_);
            peer.swap(self->peer_);
        }
        if (peer) dispatch::async(peer->inbox_.get(), [peer, self] { peer->peerEnded(self); });
    });
    NSXPCConnection* const connection = connection_;
    dispatch::async(inbox_.get(), [connection] { [connection failWithInvalidation]; });
    if (wasResumed) return;
    dispatch_resume(inbox_.get());
    dispatch_resume(outbox_.get());
}

void XPCLine::send(std::string types, objc::Invocation message, PavoAnswer* answer)
{
    bool isOver = false;
    {
        const std::lock_guard lock(mutex_);
        isOver = isOver_;
        if (answer && !isOver) answers_.push_back(answer);
    }
    if (isOver) return [answer failWithCode:kInvalid];
    const auto carried = std::make_shared<const objc::Invocation>(std::move(message));
    dispatch::async(outbox_.get(), [self = shared_from_this(), types = std::move(types), carried] {
        const auto peer = self->dial();
        if (!peer) return;
        dispatch::async(peer->inbox_.get(), [peer, types, carried] { peer->receive(types, *carried); });
    });
}

bool XPCLine::hasPeer() const
{
    const std::lock_guard lock(mutex_);
    return peer_ && !isOver_;
}

std::shared_ptr<XPCLine> XPCLine::dial()
{
    NSXPCConnection* const connection = connection_;
    {
        const std::lock_guard lock(mutex_);
        if (peer_ || isOver_ || isAccepted_) return peer_;
    }
    NSXPCListener* const listener = listenerOf(connection);
    if (!listener) {
        invalidate();
        return nullptr;
    }
    NSXPCConnection* const accepted = [[NSXPCConnection alloc] init];
    const auto peer = accepted.line;
    peer->isAccepted_ = true;
    peer->peer_ = shared_from_this();
    {
        const std::lock_guard lock(mutex_);
        peer_ = peer;
    }
    [listener askFor:accepted];
    return peer;
}

void XPCLine::receive(const std::string& types, const objc::Invocation& message)
{
    NSXPCConnection* const connection = connection_;
    if (!hasPeer() || !connection) return;
    const id object = connection.exportedObject;
    const auto* const protocol = (__bridge objc::ProtocolRecord*)connection.exportedInterface.protocol;
    const char* const known = protocol ? objc::extendedTypes(protocol, message.selector()) : nullptr;
    if (!object || !known || types != known) return invalidate();
    message.sendTo((__bridge void*)object);
}

void XPCLine::peerEnded(const std::shared_ptr<XPCLine>& peer)
{
    NSXPCConnection* const connection = connection_;
    {
        const std::lock_guard lock(mutex_);
        if (isOver_ || peer_ != peer) return;
        peer_ = nullptr;
    }
    if (!connection.serviceName) return invalidate();
    failAnswers(kInterrupted);
    [connection failWithInterruption];
}

void XPCLine::failAnswers(NSInteger code)
{
    std::vector<PavoAnswer*> answers;
    {
        const std::lock_guard lock(mutex_);
        answers.swap(answers_);
    }
    for (PavoAnswer* const& answer : answers)
        [answer failWithCode:code];
}

}  // namespace pavo::test
