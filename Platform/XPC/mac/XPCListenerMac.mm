#include "Platform/XPC/XPCListener.h"

#include "Platform/XPC/mac/XPCImpl.h"

#include <objc/runtime.h>

#include <utility>

// Asks the C++ delegate about a connection. It is tied to its listener, which knows its delegate weakly and
// may outlive the C++ object.
@interface PavoListenerDelegate : NSObject <NSXPCListenerDelegate>
- (instancetype)init __attribute__((unavailable));
- (instancetype)initWithDelegate:(std::weak_ptr<xpc::ListenerDelegate>)delegate
    __attribute__((objc_designated_initializer));
@end

@implementation PavoListenerDelegate {
    std::weak_ptr<xpc::ListenerDelegate> _delegate;
}

- (instancetype)initWithDelegate:(std::weak_ptr<xpc::ListenerDelegate>)delegate
{
    self = [super init];
    if (self) _delegate = std::move(delegate);
    return self;
}

- (BOOL)listener:(NSXPCListener*)listener shouldAcceptNewConnection:(NSXPCConnection*)newConnection
{
    const auto delegate = _delegate.lock();
    if (!delegate) return NO;
    xpc::Listener asking(std::make_unique<xpc::Listener::Impl>(listener));
    const auto connection =
        std::make_shared<xpc::Connection>(std::make_unique<xpc::Connection::Impl>(newConnection));
    return delegate->listenerShouldAcceptNewConnection(asking, connection);
}

@end

namespace xpc {

namespace {

// The key under which a delegate is tied to its listener: its address.
char delegateKey;

}  // namespace

std::shared_ptr<Listener> Listener::anonymousListener()
{
    return std::make_shared<Listener>(std::make_unique<Impl>([NSXPCListener anonymousListener]));
}

Listener::Listener(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

Listener::~Listener() = default;

void Listener::setDelegate(std::weak_ptr<ListenerDelegate> delegate)
{
    PavoListenerDelegate* const object = [[PavoListenerDelegate alloc] initWithDelegate:std::move(delegate)];
    objc_setAssociatedObject(impl_->listener, &delegateKey, object, OBJC_ASSOCIATION_RETAIN);
    impl_->listener.delegate = object;
}

ListenerEndpoint Listener::endpoint()
{
    return ListenerEndpoint(cf::adopt((__bridge_retained CFTypeRef)impl_->listener.endpoint));
}

void Listener::resume()
{
    [impl_->listener resume];
}

void Listener::invalidate()
{
    [impl_->listener invalidate];
}

}  // namespace xpc
