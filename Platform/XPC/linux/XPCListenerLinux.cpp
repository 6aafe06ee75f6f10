#include "Platform/XPC/linux/XPCListenerLinux.h"

#include "Platform/XPC/linux/AcceptedPeers.h"
#include "Platform/XPC/linux/WireLimits.h"
#include "Platform/XPC/linux/XPCConnectionLinux.h"
#include "Platform/XPC/linux/XPCLog.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace xpc {

namespace {

constexpr const char* kQueueLabel = "com.tarnwell.macos.cam.platform.xpc.listener";
constexpr int kMaxPeersPerTurn = 16;

}  // namespace

Listener::Impl::Impl() : queue(dispatch::Queue::serial(kQueueLabel)), port(std::make_shared<ListeningPort>())
{}

Listener::Impl::~Impl()
{
    for (const auto& link : unauthenticated)
        link->close();
}

void Listener::Impl::resume()
{
    const std::lock_guard lock(mutex);
    if (isResumed || isInvalidated) return;
    isResumed = true;
    self = owner.lock();
    if (!MACH_PORT_VALID(port->name())) return;
    token = IOThread::shared().add(static_cast<int>(port->name()), EPOLLIN,
                                   std::shared_ptr<EventHandler>(self, this));
    if (token == IOThread::kNoToken) os_log_printf(log(), OS_LOG_TYPE_ERROR, "Cannot watch a listener: %m");
}

void Listener::Impl::invalidate()
{
    std::shared_ptr<Listener> kept;
    std::deque<std::shared_ptr<PeerLink>> dropped;
    const std::lock_guard lock(mutex);
    if (isInvalidated) return;
    isInvalidated = true;
    IOThread::shared().remove(std::exchange(token, IOThread::kNoToken));
    port.reset();
    dropped.swap(unauthenticated);
    for (const auto& link : dropped)
        link->close();
    kept.swap(self);
}

void Listener::Impl::handleEvents(std::uint32_t)
{
    const std::lock_guard lock(mutex);
    if (isInvalidated) return;
    for (int i = 0; i < kMaxPeersPerTurn; ++i)
        if (!acceptPeer()) return;
}

// False where nobody else can be accepted for now.
bool Listener::Impl::acceptPeer()
{
    pavo::UniqueFd socket(
        accept4(static_cast<int>(port->name()), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket.isValid()) {
        if (errno == EINTR || errno == ECONNABORTED) return true;
        if (errno != EAGAIN) {
            backOff();
            return false;
        }
    }
    if (isBackingOff) IOThread::shared().setEvents(token, EPOLLIN);
    isBackingOff = false;
    if (!socket.isValid()) return false;
    admit(std::move(socket));
    return true;
}

void Listener::Impl::admit(pavo::UniqueFd socket)
{
    auto link = PeerLink::create(std::move(socket), PeerLink::Role::server);
    if (!link) return;
    link->setObserver(std::shared_ptr<PeerLink::Observer>(owner.lock(), this));
    if (!link->start()) {
        link->close();
        return;
    }
    unauthenticated.push_back(std::move(link));
    if (unauthenticated.size() <= kMaxUnauthenticatedPeers) return;
    // A peer that means it authenticates at once, so the oldest is the least likely to be one.
    os_log_printf(log(), OS_LOG_TYPE_ERROR, "Too many peers that do not authenticate: dropped process %d",
                  unauthenticated.front()->processIdentifier());
    unauthenticated.front()->close();
    unauthenticated.pop_front();
}

// No descriptors for a peer: it waits, and the thread does not ask in circles.
void Listener::Impl::backOff()
{
    if (!isBackingOff) os_log_printf(log(), OS_LOG_TYPE_ERROR, "Cannot accept a peer for now: %m");
    isBackingOff = true;
    IOThread::shared().setEvents(token, 0);
    IOThread::shared().setDeadline(token, IOThread::Clock::now() + kAcceptBackoff);
}

bool Listener::Impl::forget(const std::shared_ptr<PeerLink>& link)
{
    const std::lock_guard lock(mutex);
    return std::erase(unauthenticated, link) > 0;
}

void Listener::Impl::linkDidAuthenticate(const std::shared_ptr<PeerLink>& link)
{
    if (!forget(link)) return;
    dispatch::async(queue.get(), [listener = owner.lock(), link] { listener->impl().offer(link); });
}

void Listener::Impl::linkDidReceive(const std::shared_ptr<PeerLink>& link, IncomingMessage)
{
    // A link pauses when it has authenticated, and its connection observes it from then on.
    link->close();
}

void Listener::Impl::linkDidReceiveReply(const std::shared_ptr<PeerLink>& link, IncomingReply)
{
    link->close();
}

void Listener::Impl::linkWasLost(const std::shared_ptr<PeerLink>& link, PeerLink::Loss)
{
    forget(link);
}

void Listener::Impl::offer(const std::shared_ptr<PeerLink>& link)
{
    std::shared_ptr<ListenerDelegate> receiver;
    std::weak_ptr<ListeningPort> ownPort;
    {
        const std::lock_guard lock(mutex);
        if (!isInvalidated) receiver = delegate.lock();
        ownPort = port;
    }
    const auto listener = owner.lock();
    const auto connection = Connection::Impl::create(std::make_unique<Connection::Impl>(link));
    if (receiver && receiver->listenerShouldAcceptNewConnection(*listener, connection))
        AcceptedPeers::shared().add(ownPort, connection);
    else
        connection->invalidate();
}

std::shared_ptr<Listener> Listener::anonymousListener()
{
    auto listener = std::make_shared<Listener>(std::make_unique<Impl>());
    listener->impl().owner = listener;
    return listener;
}

Listener::Listener(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

Listener::~Listener() = default;

void Listener::setDelegate(std::weak_ptr<ListenerDelegate> delegate)
{
    const std::lock_guard lock(impl_->mutex);
    impl_->delegate = std::move(delegate);
}

ListenerEndpoint Listener::endpoint()
{
    const std::lock_guard lock(impl_->mutex);
    return makeEndpoint(impl_->port);
}

void Listener::resume()
{
    impl_->resume();
}

void Listener::invalidate()
{
    impl_->invalidate();
}

}  // namespace xpc
