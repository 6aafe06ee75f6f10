#pragma once

#include "Platform/Support/Dispatch.h"
#include "Platform/XPC/XPCConnection.h"
#include "Platform/XPC/linux/PeerLink.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

namespace xpc {

// What a connection is made of. Locks are taken in this order: the connection's, the link's, the I/O
// thread's.
struct Connection::Impl final : PeerLink::Observer {
    enum class Kind { named, endpoint, accepted };
    enum class State {
        suspended,    // not resumed yet; messages wait
        connecting,   // messages wait
        connected,    // has a link
        interrupted,  // named services only: the next message connects again
        ended,
    };
    // What a call came to: the values of the reply, or why there are none.
    using Outcome = std::variant<std::vector<Argument>, ns::Error>;
    // Called once, with the connection locked: passes the outcome on and does nothing else.
    using Completion = std::function<void(Outcome)>;

    // `target` is the service's name. `endpoint` is the endpoint object. `link` is authenticated and paused.
    static std::shared_ptr<Connection> create(std::unique_ptr<Impl> impl);
    Impl(std::string_view target, ConnectionOptions options);
    explicit Impl(const ListenerEndpoint& target);
    explicit Impl(std::shared_ptr<PeerLink> link);
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void resume();
    void invalidate();
    void send(std::string_view selector, std::span<const Argument> arguments);
    // Waits until the peer's service is found; the error says that it is not, or that the message is lost.
    std::optional<ns::Error> sendSynchronously(std::string_view selector,
                                               std::span<const Argument> arguments);
    // The reply runs on the queue.
    void call(std::string_view selector, std::span<const Argument> arguments, ReplySink reply);
    Outcome callSynchronously(std::string_view selector, std::span<const Argument> arguments);

    void linkDidAuthenticate(const std::shared_ptr<PeerLink>& link) override;
    void linkDidReceive(const std::shared_ptr<PeerLink>& link, IncomingMessage message) override;
    void linkDidReceiveReply(const std::shared_ptr<PeerLink>& link, IncomingReply reply) override;
    void linkWasLost(const std::shared_ptr<PeerLink>& link, PeerLink::Loss loss) override;
    const ProtocolDescription* interfaceForPeer() const override { return exportedInterface; }

    // Those that end in Locked are called with the lock held.
    DeclaredMethod targetLocked(std::string_view selector, std::span<const Argument> arguments) const;
    void sendLocked(OutgoingMessage message);
    void beginCallLocked(std::string_view selector, std::span<const Argument> arguments,
                         const Completion& completion);
    void failCallsLocked(std::int64_t code);
    void connectLocked();
    void connectNow();
    void connect();
    void sendLastMessagesLocked(const std::shared_ptr<PeerLink>& newLink);
    void useLinkLocked(std::shared_ptr<PeerLink> newLink);
    void loseLinkLocked(PeerLink::Loss loss);
    void endLocked();
    void finish();
    void deliver(const IncomingMessage& message);
    bool invoke(const IncomingMessage& message);
    std::weak_ptr<PeerLink::Observer> observer() const;

    const Kind kind;
    const std::string name;
    const bool isPrivileged = false;
    const std::optional<ListenerEndpoint> endpoint;
    const dispatch::Queue queue;
    std::weak_ptr<Connection> owner;
    std::atomic<const ProtocolDescription*> exportedInterface = nullptr;

    mutable std::mutex mutex;
    std::condition_variable didConnect;  // or did not: the state is not connecting any more
    bool isLookingUp = false;
    State state = State::suspended;
    bool isInvalidated = false;  // by this side, or lost: nothing more is delivered
    bool isFinished = false;     // handlers and exported object are gone for good
    std::size_t undeliveredCount = 0;
    std::shared_ptr<PeerLink> link;
    std::deque<OutgoingMessage> waiting;
    CallNumber lastCall = kNoCall;
    std::unordered_map<CallNumber, Completion> calls;
    const ProtocolDescription* remoteInterface = nullptr;
    ExportedObject exportedObject;
    std::function<void()> invalidationHandler;
    std::function<void()> interruptionHandler;
    std::shared_ptr<Connection> self;  // from resume to the end
};

}  // namespace xpc
