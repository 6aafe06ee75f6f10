#include "Platform/XPC/linux/XPCConnectionLinux.h"

#include "Platform/Support/Fatal.h"
#include "Platform/XPC/linux/WireLimits.h"
#include "Platform/XPC/linux/WireText.h"
#include "Platform/XPC/linux/XPCListenerEndpointLinux.h"
#include "Platform/XPC/linux/XPCLog.h"

#include <servers/bootstrap.h>
#include <servers/bootstrap_private.h>

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

pavo::UniqueFd lookUp(const std::string& name, bool isPrivileged)
{
    name_t buffer{};
    if (name.size() >= sizeof(buffer)) return {};
    std::copy(name.begin(), name.end(), buffer);
    mach_port_t port = MACH_PORT_NULL;
    const auto where = isPrivileged ? bootstrap_system_port() : bootstrap_port;
    if (bootstrap_look_up(where, buffer, &port) != BOOTSTRAP_SUCCESS) return {};
    return pavo::UniqueFd(static_cast<int>(port));
}

ns::Error connectionError(std::int64_t code)
{
    return {ns::NSCocoaErrorDomain, code};
}

// Holds the outcome of a call for the thread that waits for it.
class Rendezvous {
public:
    void put(Connection::Impl::Outcome outcome)
    {
        const std::lock_guard lock(mutex_);
        outcome_ = std::move(outcome);
        isThere_.notify_one();
    }
    Connection::Impl::Outcome take()
    {
        std::unique_lock lock(mutex_);
        isThere_.wait(lock, [this] { return outcome_.has_value(); });
        return *std::move(outcome_);
    }

private:
    std::mutex mutex_;
    std::condition_variable isThere_;
    std::optional<Connection::Impl::Outcome> outcome_;
};

}  // namespace

std::shared_ptr<Connection> Connection::Impl::create(std::unique_ptr<Impl> impl)
{
    auto connection = std::make_shared<Connection>(std::move(impl));
    connection->impl().owner = connection;
    return connection;
}

Connection::Impl::Impl(std::string_view target, ConnectionOptions options)
    : kind(Kind::named),
      name(target),
      isPrivileged(options == ConnectionOptions::privileged),
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
    if (state == State::ended) return;
    if (link && state == State::connected) std::exchange(link, nullptr)->closeWhenSent();
    const bool isOnItsWay = state == State::connecting;
    auto last = std::exchange(waiting, {});
    endLocked();
    if (isOnItsWay) waiting = std::move(last);
}

// Anything but a method of the interface with its arguments is a programming error.
DeclaredMethod Connection::Impl::targetLocked(std::string_view selector,
                                              std::span<const Argument> arguments) const
{
    pavo::require(remoteInterface != nullptr, "A message needs a remote object interface");
    const auto target = findBySelector(*remoteInterface, selector);
    pavo::require(target.has_value(), "No such message: " + std::string(selector));
    pavo::require(fits(*target->method, arguments), "Wrong arguments for " + std::string(selector));
    return *target;
}

void Connection::Impl::send(std::string_view selector, std::span<const Argument> arguments)
{
    const std::lock_guard lock(mutex);
    const auto target = targetLocked(selector, arguments);
    pavo::require(!target.method->reply, "A reply is missing for " + std::string(selector));
    if (state != State::ended) sendLocked({target, {arguments.begin(), arguments.end()}});
}

void Connection::Impl::sendLocked(OutgoingMessage message)
{
    if (!canTravel(message.arguments)) {
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "Cannot put the arguments of %s in a message",
                      std::string(message.target.method->selector).c_str());
        if (const auto call = calls.extract(message.call); !call.empty())
            call.mapped()(connectionError(ns::NSXPCConnectionReplyInvalid));
        return;
    }
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

std::optional<ns::Error> Connection::Impl::sendSynchronously(std::string_view selector,
                                                             std::span<const Argument> arguments)
{
    send(selector, arguments);
    connectNow();
    std::unique_lock lock(mutex);
    didConnect.wait(lock, [this] { return state != State::connecting; });
    if (state == State::ended) return connectionError(ns::NSXPCConnectionInvalid);
    if (state == State::interrupted) return connectionError(ns::NSXPCConnectionInterrupted);
    return std::nullopt;
}

void Connection::Impl::call(std::string_view selector, std::span<const Argument> arguments, ReplySink reply)
{
    const std::lock_guard lock(mutex);
    beginCallLocked(selector, arguments, [this, reply = std::move(reply)](Outcome outcome) {
        auto* values = std::get_if<std::vector<Argument>>(&outcome);
        if (!values) return;
        dispatch::async(queue.get(),
                        [reply, values = std::move(*values), connection = owner.lock()] { reply(values); });
    });
}

Connection::Impl::Outcome Connection::Impl::callSynchronously(std::string_view selector,
                                                              std::span<const Argument> arguments)
{
    const auto rendezvous = std::make_shared<Rendezvous>();
    {
        const std::lock_guard lock(mutex);
        beginCallLocked(selector, arguments,
                        [rendezvous](Outcome outcome) { rendezvous->put(std::move(outcome)); });
    }
    connectNow();
    return rendezvous->take();
}

void Connection::Impl::beginCallLocked(std::string_view selector, std::span<const Argument> arguments,
                                       const Completion& completion)
{
    const auto target = targetLocked(selector, arguments);
    pavo::require(target.method->reply.has_value(), "There is no reply to " + std::string(selector));
    if (state == State::ended) {
        completion(connectionError(ns::NSXPCConnectionInvalid));
        return;
    }
    const auto number = ++lastCall;
    calls[number] = completion;
    if (calls.size() <= kMaxUnansweredCalls) {
        sendLocked({target, {arguments.begin(), arguments.end()}, number});
        return;
    }
    os_log_printf(log(), OS_LOG_TYPE_ERROR, "Too many calls wait for their replies");
    endLocked();
}

void Connection::Impl::failCallsLocked(std::int64_t code)
{
    for (const auto& [number, completion] : std::exchange(calls, {}))
        completion(connectionError(code));
}

// On the queue, because it reads folders, and because a name that is missing must be reported later.
void Connection::Impl::connectLocked()
{
    state = State::connecting;
    dispatch::async(queue.get(), [connection = owner.lock()] { connection->impl().connect(); });
}

// For a thread that waits: the queue may be busy.
void Connection::Impl::connectNow()
{
    {
        const std::lock_guard lock(mutex);
        if (state != State::connecting) return;
    }
    connect();
}

void Connection::Impl::connect()
{
    {
        const std::lock_guard lock(mutex);
        const bool hasLastMessages = state == State::ended && !waiting.empty();
        if (isLookingUp || (state != State::connecting && !hasLastMessages)) return;
        isLookingUp = true;
    }
    auto socket = kind == Kind::named ? lookUp(name, isPrivileged) : connectTo(*endpoint);
    auto newLink = socket.isValid() ? PeerLink::create(std::move(socket), PeerLink::Role::client) : nullptr;
    const std::lock_guard lock(mutex);
    isLookingUp = false;
    if (state != State::connecting)
        sendLastMessagesLocked(newLink);
    else if (newLink)
        useLinkLocked(std::move(newLink));
    else
        endLocked();
    didConnect.notify_all();
}

// What was sent before the connection was invalidated, which then had no link yet.
void Connection::Impl::sendLastMessagesLocked(const std::shared_ptr<PeerLink>& newLink)
{
    const bool hasMessages = std::any_of(waiting.begin(), waiting.end(),
                                         [](const auto& message) { return message.call == kNoCall; });
    bool isAlive = newLink && hasMessages && newLink->start();
    for (; isAlive && !waiting.empty(); waiting.pop_front())
        if (waiting.front().call == kNoCall) isAlive = newLink->send(std::move(waiting.front()));
    waiting.clear();
    if (isAlive) newLink->closeWhenSent();
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
    failCallsLocked(ns::NSXPCConnectionInterrupted);
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
    failCallsLocked(ns::NSXPCConnectionInvalid);
    didConnect.notify_all();
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

void Connection::Impl::linkDidReceiveReply(const std::shared_ptr<PeerLink>& from, IncomingReply reply)
{
    const std::lock_guard lock(mutex);
    if (from != link) return;
    const auto call = calls.extract(reply.call);
    if (call.empty()) return;
    if (reply.values)
        call.mapped()(*std::move(reply.values));
    else
        call.mapped()(connectionError(ns::NSXPCConnectionReplyInvalid));
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
        !object.protocol->invoke(object.object.get(), selector, message.arguments, message.reply)) {
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "The exported object has no %s", selector.c_str());
        return false;
    }
    return true;
}

std::shared_ptr<Connection> Connection::withMachServiceName(std::string_view name, ConnectionOptions options)
{
    return Impl::create(std::make_unique<Impl>(name, options));
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

Proxy Connection::synchronousRemoteObjectProxyWithErrorHandler(Proxy::ErrorHandler errorHandler)
{
    const std::lock_guard lock(impl_->mutex);
    return Proxy(shared_from_this(), impl_->remoteInterface, std::move(errorHandler));
}

std::int32_t Connection::processIdentifier() const
{
    const std::lock_guard lock(impl_->mutex);
    return impl_->link ? impl_->link->processIdentifier() : 0;
}

void Proxy::send(std::string_view selector, std::span<const Argument> arguments) const
{
    if (!isSynchronous_) {
        connection_->impl().send(selector, arguments);
        return;
    }
    const auto error = connection_->impl().sendSynchronously(selector, arguments);
    if (error && errorHandler_) errorHandler_(*error);
}

void Proxy::call(std::string_view selector, std::span<const Argument> arguments, ReplySink reply) const
{
    if (!isSynchronous_) {
        connection_->impl().call(selector, arguments, std::move(reply));
        return;
    }
    const auto outcome = connection_->impl().callSynchronously(selector, arguments);
    if (const auto* values = std::get_if<std::vector<Argument>>(&outcome))
        reply(*values);
    else if (errorHandler_)
        errorHandler_(std::get<ns::Error>(outcome));
}

}  // namespace xpc
