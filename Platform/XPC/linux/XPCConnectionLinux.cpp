#include "Platform/XPC/linux/XPCConnectionLinux.h"

#include "Platform/Support/Fatal.h"
#include "Platform/XPC/linux/WireLimits.h"
#include "Platform/XPC/linux/XPCListenerEndpointLinux.h"
#include "Platform/XPC/linux/XPCLog.h"

#include <servers/bootstrap.h>

#include <algorithm>
#include <utility>

namespace xpc {

namespace {

constexpr const char* kQueueLabel = "com.tarnwell.macos.cam.platform.xpc.connection";

bool fits(const MethodDescription& method, std::span<const Argument> arguments)
{
    return std::equal(method.arguments.begin(), method.arguments.end(), arguments.begin(), arguments.end(),
                      [](ArgumentType type, const Argument& argument) {
                          return static_cast<std::size_t>(type) == argument.index();
                      });
}

pavo::UniqueFd lookUp(const std::string& name)
{
    name_t buffer{};
    if (name.size() >= sizeof(buffer)) return {};
    std::copy(name.begin(), name.end(), buffer);
    mach_port_t port = MACH_PORT_NULL;
    if (bootstrap_look_up(bootstrap_port, buffer, &port) != BOOTSTRAP_SUCCESS) return {};
    return pavo::UniqueFd(static_cast<int>(port));
}

}  // namespace

std::shared_ptr<Connection> Connection::Impl::create(std::unique_ptr<Impl> impl)
{
    auto connection = std::make_shared<Connection>(std::move(impl));
    connection->impl().owner = connection;
    return connection;
}

Connection::Impl::Impl(std::string_view target)
    : kind(Kind::named),
      name(target),
      queue(dispatch::Queue::serial(kQueueLabel))
{}

Connection::Impl::Impl(const ListenerEndpoint& target)
    : kind(Kind::endpoint),
      endpoint(target),
      queue(dispatch::Queue::serial(kQueueLabel))
{}

Connection::Impl::Impl(std::shared_ptr<PeerLink> newLink)
    : kind(Kind::accepted),
      queue(dispatch::Queue::serial(kQueueLabel)),
      link(std::move(newLink))
{}

Connection::Impl::~Impl()
{
    if (link) link->close();
}

std::weak_ptr<PeerLink::Observer> Connection::Impl::observer() const
{
    const auto connection = owner.lock();
    if (!connection) return {};
    return std::shared_ptr<PeerLink::Observer>(connection, &connection->impl());
}

void Connection::Impl::resume()
{
    const std::lock_guard lock(mutex);
    if (state != State::suspended) return;
    self = owner.lock();
    if (kind == Kind::accepted)
        useLinkLocked(std::move(link));
    else
        connectLocked();
}

void Connection::Impl::invalidate()
{
    const std::lock_guard lock(mutex);
    isInvalidated = true;
    endLocked();
}

void Connection::Impl::send(std::string_view selector, std::span<const Argument> arguments)
{
    const std::lock_guard lock(mutex);
    pavo::require(remoteInterface != nullptr, "A message needs a remote object interface");
    const auto target = findBySelector(*remoteInterface, selector);
    pavo::require(target.has_value(), "No such message: " + std::string(selector));
    pavo::require(fits(*target->method, arguments), "Wrong arguments for " + std::string(selector));
    if (state == State::ended) return;
    OutgoingMessage message{*target, {arguments.begin(), arguments.end()}};
    if (state == State::connected) {
        if (!link->send(std::move(message))) loseLinkLocked(PeerLink::Loss::peerGone);
        return;
    }
    waiting.push_back(std::move(message));
    if (waiting.size() > kMaxQueuedMessages) {
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "Too many messages wait for a connection");
        endLocked();
    } else if (state == State::interrupted) {
        connectLocked();
    }
}

// On the queue, because it reads folders, and because a name that is missing must be reported later.
void Connection::Impl::connectLocked()
{
    state = State::connecting;
    dispatch::async(queue.get(), [connection = owner.lock()] { connection->impl().connect(); });
}

void Connection::Impl::connect()
{
    auto socket = kind == Kind::named ? lookUp(name) : connectTo(*endpoint);
    auto newLink = socket.isValid() ? PeerLink::create(std::move(socket), PeerLink::Role::client) : nullptr;
    const std::lock_guard lock(mutex);
    if (state != State::connecting) return;
    if (newLink)
        useLinkLocked(std::move(newLink));
    else
        endLocked();
}

void Connection::Impl::useLinkLocked(std::shared_ptr<PeerLink> newLink)
{
    state = State::connected;
    link = std::move(newLink);
    link->setObserver(observer());
    bool isAlive = link->start();
    for (; isAlive && !waiting.empty(); waiting.pop_front())
        isAlive = link->send(std::move(waiting.front()));
    if (!isAlive) loseLinkLocked(PeerLink::Loss::peerGone);
}

void Connection::Impl::loseLinkLocked(PeerLink::Loss loss)
{
    if (kind != Kind::named || loss == PeerLink::Loss::violation) {
        endLocked();
        return;
    }
    state = State::interrupted;
    link->close();
    link.reset();
    waiting.clear();
    dispatch::async(queue.get(), [connection = owner.lock()] {
        auto& impl = connection->impl();
        std::function<void()> handler;
        {
            const std::lock_guard lock(impl.mutex);
            handler = impl.interruptionHandler;
        }
        if (handler) handler();
    });
}

void Connection::Impl::endLocked()
{
    if (state == State::ended) return;
    state = State::ended;
    if (link) link->close();
    link.reset();
    waiting.clear();
    // What arrived before is delivered first: the queue is serial.
    dispatch::async(queue.get(), [connection = owner.lock()] { connection->impl().finish(); });
}

void Connection::Impl::finish()
{
    std::function<void()> handler;
    {
        const std::lock_guard lock(mutex);
        isInvalidated = true;
        handler = std::move(invalidationHandler);
        invalidationHandler = nullptr;
    }
    if (handler) handler();

    // Dropped outside of the lock: what they keep alive may call this connection when it goes.
    std::function<void()> interruption;
    ExportedObject object;
    std::shared_ptr<Connection> kept;
    const std::lock_guard lock(mutex);
    isFinished = true;
    interruption.swap(interruptionHandler);
    std::swap(object, exportedObject);
    kept.swap(self);
}

void Connection::Impl::linkDidAuthenticate(const std::shared_ptr<PeerLink>&)
{
    // The link has sent what waited for it.
}

void Connection::Impl::linkDidReceive(const std::shared_ptr<PeerLink>& from, IncomingMessage message)
{
    {
        const std::lock_guard lock(mutex);
        if (++undeliveredCount >= kMaxUndeliveredMessages) from->pause();
    }
    dispatch::async(queue.get(), [connection = owner.lock(), message = std::move(message)] {
        connection->impl().deliver(message);
    });
}

void Connection::Impl::linkWasLost(const std::shared_ptr<PeerLink>& lost, PeerLink::Loss loss)
{
    const std::lock_guard lock(mutex);
    if (lost == link) loseLinkLocked(loss);
}

void Connection::Impl::deliver(const IncomingMessage& message)
{
    const bool isTaken = invoke(message);
    const std::lock_guard lock(mutex);
    --undeliveredCount;
    if (!isTaken) {
        isInvalidated = true;
        endLocked();
    } else if (link && undeliveredCount == kMaxUndeliveredMessages / 2 && !link->start()) {
        loseLinkLocked(PeerLink::Loss::peerGone);
    }
}

// False where there is nobody to take the message.
bool Connection::Impl::invoke(const IncomingMessage& message)
{
    ExportedObject object;
    {
        const std::lock_guard lock(mutex);
        if (isInvalidated) return true;
        object = exportedObject;
    }
    const std::string selector(message.method->selector);
    if (!object.object) {
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "No exported object for %s", selector.c_str());
        return false;
    }
    const auto* method = object.protocol->method(selector);
    if (!method || !fits(*method, message.arguments) ||
        !object.protocol->invoke(object.object.get(), selector, message.arguments)) {
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "The exported object has no %s", selector.c_str());
        return false;
    }
    return true;
}

std::shared_ptr<Connection> Connection::withMachServiceName(std::string_view name)
{
    return Impl::create(std::make_unique<Impl>(name));
}

std::shared_ptr<Connection> Connection::withListenerEndpoint(const ListenerEndpoint& endpoint)
{
    return Impl::create(std::make_unique<Impl>(endpoint));
}

Connection::Connection(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

Connection::~Connection() = default;

void Connection::setRemoteObjectInterface(const ProtocolDescription& protocol)
{
    requireWireNames(protocol);
    const std::lock_guard lock(impl_->mutex);
    impl_->remoteInterface = &protocol;
}

void Connection::setExportedInterface(const ProtocolDescription& protocol)
{
    requireWireNames(protocol);
    impl_->exportedInterface = &protocol;
}

void Connection::setExportedObject(ExportedObject object)
{
    const std::lock_guard lock(impl_->mutex);
    // After the swap, `object` is the old one, which goes after the lock.
    if (!impl_->isFinished) std::swap(impl_->exportedObject, object);
}

void Connection::setInvalidationHandler(std::function<void()> handler)
{
    const std::lock_guard lock(impl_->mutex);
    if (!impl_->isFinished) impl_->invalidationHandler.swap(handler);
}

void Connection::setInterruptionHandler(std::function<void()> handler)
{
    const std::lock_guard lock(impl_->mutex);
    if (!impl_->isFinished) impl_->interruptionHandler.swap(handler);
}

void Connection::resume()
{
    impl_->resume();
}

void Connection::invalidate()
{
    impl_->invalidate();
}

Proxy Connection::remoteObjectProxy()
{
    const std::lock_guard lock(impl_->mutex);
    return Proxy(shared_from_this(), impl_->remoteInterface);
}

std::int32_t Connection::processIdentifier() const
{
    const std::lock_guard lock(impl_->mutex);
    return impl_->link ? impl_->link->processIdentifier() : 0;
}

void Proxy::send(std::string_view selector, std::span<const Argument> arguments) const
{
    connection_->impl().send(selector, arguments);
}

}  // namespace xpc
