#pragma once

#include "Platform/XPC/XPCConnection.h"
#include "Platform/XPC/XPCListener.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// In place of the XPC face: listeners and connections without any peer process. The test plays the far end,
// on its own thread; nothing happens by itself, except that the service answers what comes through a
// synchronous proxy. Safe to use from several threads at once.
namespace xpc::test {

struct SentMessage {
    std::string selector;
    std::vector<Argument> arguments;
};

// The far end of one connection, as the test holds it. The connection lives at least as long as this.
class Peer final {
public:
    // Dials the listener: its delegate is asked, on this thread, whether it takes the connection. The
    // listener must have been resumed. With `actualProtocol` the peer's object is of that protocol, whatever
    // interface the near end sets.
    static std::shared_ptr<Peer> connect(Listener& listener,
                                         const ProtocolDescription* actualProtocol = nullptr);
    // The far end of a connection that no listener had to accept.
    explicit Peer(const ProtocolDescription* actualProtocol = nullptr);
    // Ends the connection without telling anybody, and drops what it kept.
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    const std::shared_ptr<Connection>& connection() const { return connection_; }
    bool isAccepted() const { return isAccepted_; }

    // What the near end did with the connection so far, in order: "setRemoteObjectInterface <protocol>",
    // "setExportedInterface <protocol>", "setExportedObject", "setExportedObject none",
    // "setInvalidationHandler", "setInterruptionHandler", both also with " none", "resume",
    // "remoteObjectProxy", "synchronousRemoteObjectProxyWithErrorHandler", "invalidate"; first, where it was
    // dialled by name, "withMachServiceName <name>", with " privileged" where it is.
    std::vector<std::string> calls() const;
    // What the near end sent, oldest first.
    std::vector<SentMessage> sentMessages() const;
    std::vector<std::string> sentSelectors() const;
    ExportedObject exportedObject() const;

    // Sends the near end's exported object a message; false where it exports none, is not resumed, or has no
    // such message.
    template <typename Service, auto Method, typename... A>
    bool send(const A&... values) const
    {
        constexpr std::string_view selector = selectorOf<Service, MethodTag<Method>>();
        const std::array<Argument, sizeof...(A)> arguments = {Travels<A>::wrap(values)...};
        return deliver(selector, arguments);
    }
    bool deliver(std::string_view selector, std::span<const Argument> arguments) const;

    // The connection is lost for good: runs the invalidation handler, then drops handlers and exported
    // object.
    void failWithInvalidation();
    // The peer went away: runs the interruption handler.
    void failWithInterruption();

private:
    std::shared_ptr<Connection> connection_;
    bool isAccepted_ = false;
};

// What a message through a synchronous proxy comes to: the values of its reply (none for a message without
// one), or an error.
using Answer = std::variant<std::vector<Argument>, ns::Error>;

// Who serves all names that are dialled.
struct Service {
    // Asked on the caller's thread, within its call. Empty: nobody is there, which is the beginning.
    std::function<Answer(Peer& peer, const SentMessage& message)> answer;
    // Of that protocol, whatever interface the near end sets.
    const ProtocolDescription* actualProtocol = nullptr;
};
void setService(Service service);
// The far ends of the connections that were dialled by name since the last call, oldest first.
std::vector<std::shared_ptr<Peer>> takeDialledPeers();

// Every listener that still lives, the one that was made last at the end.
std::vector<std::shared_ptr<Listener>> liveListeners();
std::shared_ptr<Listener> lastListener();
bool isResumed(Listener& listener);
std::shared_ptr<ListenerDelegate> delegate(Listener& listener);
// The port that the listener's endpoints carry.
mach_port_t port(Listener& listener);

// Told each call of any connection or listener at once, before it has an effect: as Peer::calls says it, and
// "Listener resume", "Listener setDelegate", "Listener endpoint". Empty: nobody.
void setCallObserver(std::function<void(const std::string&)> observer);

}  // namespace xpc::test
