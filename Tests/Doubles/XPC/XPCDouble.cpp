#include "Tests/Doubles/XPC/XPCDouble.h"

#include <atomic>
#include <mutex>
#include <utility>

namespace xpc {

namespace {

std::mutex observerMutex;
std::function<void(const std::string&)> callObserver;
std::mutex listenerMutex;
std::vector<std::weak_ptr<Listener>> listeners;
std::mutex serviceMutex;
test::Service service;
std::vector<std::shared_ptr<test::Peer>> dialledPeers;

void tellObserver(const std::string& call)
{
    std::function<void(const std::string&)> observer;
    {
        const std::lock_guard lock(observerMutex);
        observer = callObserver;
    }
    if (observer) observer(call);
}

}  // namespace

struct Connection::Impl {
    const ProtocolDescription* actualProtocol = nullptr;
    std::weak_ptr<test::Peer> dialledPeer;

    mutable std::mutex mutex;
    std::vector<std::string> calls;
    std::vector<test::SentMessage> sent;
    const ProtocolDescription* remoteInterface = nullptr;
    const ProtocolDescription* exportedInterface = nullptr;
    ExportedObject exported;
    std::function<void()> invalidationHandler;
    std::function<void()> interruptionHandler;
    bool isResumed = false;

    void record(const std::string& call)
    {
        tellObserver(call);
        const std::lock_guard lock(mutex);
        calls.push_back(call);
    }
    void recordSent(test::SentMessage message)
    {
        const std::lock_guard lock(mutex);
        sent.push_back(std::move(message));
    }
    // What the service says to a message through a synchronous proxy.
    test::Answer ask(const test::SentMessage& message)
    {
        recordSent(message);
        decltype(service.answer) answer;
        {
            const std::lock_guard lock(serviceMutex);
            answer = service.answer;
        }
        const auto peer = dialledPeer.lock();
        if (!answer || !peer) return ns::Error{ns::NSCocoaErrorDomain, ns::NSXPCConnectionInvalid};
        return answer(*peer, message);
    }
    void drop()
    {
        // Destroyed after the lock is given back: what they keep may come back here.
        ExportedObject oldExported;
        std::function<void()> oldInvalidation;
        std::function<void()> oldInterruption;
        const std::lock_guard lock(mutex);
        std::swap(oldExported, exported);
        oldInvalidation.swap(invalidationHandler);
        oldInterruption.swap(interruptionHandler);
    }
};

Connection::Connection(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Connection::~Connection() = default;

std::shared_ptr<Connection> Connection::withMachServiceName(std::string_view name, ConnectionOptions options)
{
    std::shared_ptr<test::Peer> peer;
    {
        const std::lock_guard lock(serviceMutex);
        peer = std::make_shared<test::Peer>(service.actualProtocol);
        dialledPeers.push_back(peer);
    }
    auto& impl = peer->connection()->impl();
    impl.dialledPeer = peer;
    impl.record("withMachServiceName " + std::string(name) +
                (options == ConnectionOptions::privileged ? " privileged" : ""));
    return peer->connection();
}

void Connection::setRemoteObjectInterface(const ProtocolDescription& protocol)
{
    impl_->record("setRemoteObjectInterface " + std::string(protocol.name));
    const std::lock_guard lock(impl_->mutex);
    impl_->remoteInterface = &protocol;
}

void Connection::setExportedInterface(const ProtocolDescription& protocol)
{
    impl_->record("setExportedInterface " + std::string(protocol.name));
    const std::lock_guard lock(impl_->mutex);
    impl_->exportedInterface = &protocol;
}

void Connection::setExportedObject(ExportedObject object)
{
    impl_->record(object.object ? "setExportedObject" : "setExportedObject none");
    const std::lock_guard lock(impl_->mutex);
    std::swap(impl_->exported, object);
}

void Connection::setInvalidationHandler(std::function<void()> handler)
{
    impl_->record(handler ? "setInvalidationHandler" : "setInvalidationHandler none");
    const std::lock_guard lock(impl_->mutex);
    impl_->invalidationHandler.swap(handler);
}

void Connection::setInterruptionHandler(std::function<void()> handler)
{
    impl_->record(handler ? "setInterruptionHandler" : "setInterruptionHandler none");
    const std::lock_guard lock(impl_->mutex);
    impl_->interruptionHandler.swap(handler);
}

void Connection::resume()
{
    impl_->record("resume");
    const std::lock_guard lock(impl_->mutex);
    impl_->isResumed = true;
}

void Connection::invalidate()
{
    impl_->record("invalidate");
}

Proxy Connection::remoteObjectProxy()
{
    impl_->record("remoteObjectProxy");
    const std::lock_guard lock(impl_->mutex);
    return {shared_from_this(), impl_->actualProtocol ? impl_->actualProtocol : impl_->remoteInterface};
}

Proxy Connection::synchronousRemoteObjectProxyWithErrorHandler(Proxy::ErrorHandler errorHandler)
{
    impl_->record("synchronousRemoteObjectProxyWithErrorHandler");
    const std::lock_guard lock(impl_->mutex);
    return {shared_from_this(), impl_->actualProtocol ? impl_->actualProtocol : impl_->remoteInterface,
            std::move(errorHandler)};
}

void Proxy::send(std::string_view selector, std::span<const Argument> arguments) const
{
    const test::SentMessage message{std::string(selector), {arguments.begin(), arguments.end()}};
    if (!isSynchronous_) {
        connection_->impl().recordSent(message);
        return;
    }
    const auto answer = connection_->impl().ask(message);
    const auto* error = std::get_if<ns::Error>(&answer);
    if (error && errorHandler_) errorHandler_(*error);
}

void Proxy::call(std::string_view selector, std::span<const Argument> arguments, ReplySink reply) const
{
    const test::SentMessage message{std::string(selector), {arguments.begin(), arguments.end()}};
    if (!isSynchronous_) {
        connection_->impl().recordSent(message);
        return;
    }
    const auto answer = connection_->impl().ask(message);
    if (const auto* values = std::get_if<std::vector<Argument>>(&answer))
        reply(*values);
    else if (errorHandler_)
        errorHandler_(std::get<ns::Error>(answer));
}

struct Listener::Impl {
    explicit Impl(mach_port_t portNumber) : port(portNumber) {}

    const mach_port_t port;
    std::mutex mutex;
    std::weak_ptr<ListenerDelegate> delegate;
    bool isResumed = false;
};

std::shared_ptr<Listener> Listener::anonymousListener()
{
    static std::atomic<mach_port_t> nextPort = 7001;
    auto listener = std::make_shared<Listener>(std::make_unique<Impl>(nextPort++));
    const std::lock_guard lock(listenerMutex);
    std::erase_if(listeners, [](const auto& other) { return other.expired(); });
    listeners.push_back(listener);
    return listener;
}

Listener::Listener(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Listener::~Listener() = default;

void Listener::setDelegate(std::weak_ptr<ListenerDelegate> delegate)
{
    tellObserver("Listener setDelegate");
    const std::lock_guard lock(impl_->mutex);
    impl_->delegate = std::move(delegate);
}

void Listener::resume()
{
    tellObserver("Listener resume");
    const std::lock_guard lock(impl_->mutex);
    impl_->isResumed = true;
}

// The endpoint object of the double is a number: the port that it carries.
ListenerEndpoint Listener::endpoint()
{
    tellObserver("Listener endpoint");
    const auto value = static_cast<std::int32_t>(impl_->port);
    return ListenerEndpoint(
        cf::adopt<CFTypeRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value)));
}

mach_port_t ListenerEndpoint::machPort(CFTypeRef endpointObject)
{
    std::int32_t value = 0;
    if (endpointObject)
        CFNumberGetValue(static_cast<CFNumberRef>(endpointObject), kCFNumberSInt32Type, &value);
    return static_cast<mach_port_t>(value);
}

namespace test {

Peer::Peer(const ProtocolDescription* actualProtocol)
{
    auto impl = std::make_unique<Connection::Impl>();
    impl->actualProtocol = actualProtocol;
    connection_ = std::make_shared<Connection>(std::move(impl));
}

Peer::~Peer()
{
    connection_->impl().drop();
}

std::shared_ptr<Peer> Peer::connect(Listener& listener, const ProtocolDescription* actualProtocol)
{
    auto peer = std::make_shared<Peer>(actualProtocol);
    const auto receiver = isResumed(listener) ? delegate(listener) : nullptr;
    if (receiver)
        peer->isAccepted_ = receiver->listenerShouldAcceptNewConnection(listener, peer->connection_);
    return peer;
}

std::vector<std::string> Peer::calls() const
{
    const std::lock_guard lock(connection_->impl().mutex);
    return connection_->impl().calls;
}

std::vector<SentMessage> Peer::sentMessages() const
{
    const std::lock_guard lock(connection_->impl().mutex);
    return connection_->impl().sent;
}

std::vector<std::string> Peer::sentSelectors() const
{
    std::vector<std::string> selectors;
    for (const auto& message : sentMessages())
        selectors.push_back(message.selector);
    return selectors;
}

ExportedObject Peer::exportedObject() const
{
    const std::lock_guard lock(connection_->impl().mutex);
    return connection_->impl().exported;
}

bool Peer::deliver(std::string_view selector, std::span<const Argument> arguments) const
{
    ExportedObject receiver;
    {
        const auto& impl = connection_->impl();
        const std::lock_guard lock(impl.mutex);
        if (!impl.isResumed || !impl.exportedInterface || !impl.exportedInterface->method(selector))
            return false;
        receiver = impl.exported;
    }
    return receiver.object && receiver.protocol->invoke(receiver.object.get(), selector, arguments, {});
}

void Peer::failWithInvalidation()
{
    auto& impl = connection_->impl();
    std::function<void()> handler;
    {
        const std::lock_guard lock(impl.mutex);
        impl.isResumed = false;
        handler = impl.invalidationHandler;
    }
    if (handler) handler();
    impl.drop();
}

void Peer::failWithInterruption()
{
    std::function<void()> handler;
    {
        const std::lock_guard lock(connection_->impl().mutex);
        handler = connection_->impl().interruptionHandler;
    }
    if (handler) handler();
}

void setService(Service newService)
{
    const std::lock_guard lock(serviceMutex);
    service = std::move(newService);
}

std::vector<std::shared_ptr<Peer>> takeDialledPeers()
{
    const std::lock_guard lock(serviceMutex);
    return std::exchange(dialledPeers, {});
}

std::vector<std::shared_ptr<Listener>> liveListeners()
{
    std::vector<std::shared_ptr<Listener>> live;
    const std::lock_guard lock(listenerMutex);
    for (const auto& weakListener : listeners)
        if (auto listener = weakListener.lock()) live.push_back(std::move(listener));
    return live;
}

std::shared_ptr<Listener> lastListener()
{
    const auto live = liveListeners();
    return live.empty() ? nullptr : live.back();
}

bool isResumed(Listener& listener)
{
    const std::lock_guard lock(listener.impl().mutex);
    return listener.impl().isResumed;
}

std::shared_ptr<ListenerDelegate> delegate(Listener& listener)
{
    const std::lock_guard lock(listener.impl().mutex);
    return listener.impl().delegate.lock();
}

mach_port_t port(Listener& listener)
{
    return listener.impl().port;
}

void setCallObserver(std::function<void(const std::string&)> observer)
{
    const std::lock_guard lock(observerMutex);
    callObserver = std::move(observer);
}

}  // namespace test

}  // namespace xpc
