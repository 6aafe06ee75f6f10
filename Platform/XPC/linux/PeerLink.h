#pragma once

#include "Platform/Support/UniqueFd.h"
#include "Platform/XPC/linux/IOThread.h"
#include "Platform/XPC/linux/MessageReader.h"
#include "Platform/XPC/linux/WireMessage.h"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

namespace xpc {

// One D-Bus connection over one socket. Speaks D-Bus with the library sd-bus, which writes to the socket
// itself and reads, from a socket pair, only what a MessageReader has let through.
//
// Ownership: shared by its connection or listener and, while it runs, by the I/O thread. Knows both weakly.
// Threads:   all functions may be called from any thread; observers are told on the I/O thread, without a
//            lock. Sending never waits for the peer.
// Errors:    a link that fails closes itself and tells its observer once. Closing it from outside tells
//            nobody.
class PeerLink final : public EventHandler, public std::enable_shared_from_this<PeerLink> {
public:
    enum class Role { client, server };
    enum class Loss {
        peerGone,   // closed, crashed, does not read, or never authenticated
        violation,  // sent something that cannot be taken
    };

    class Observer {
    public:
        // A server's link pauses itself before this: nothing is received until it is started again.
        virtual void linkDidAuthenticate(const std::shared_ptr<PeerLink>& link) = 0;
        virtual void linkDidReceive(const std::shared_ptr<PeerLink>& link, IncomingMessage message) = 0;
        virtual void linkDidReceiveReply(const std::shared_ptr<PeerLink>& link, IncomingReply reply) = 0;
        virtual void linkWasLost(const std::shared_ptr<PeerLink>& link, Loss loss) = 0;
        // What the peer may send. Called with the link locked: must not call it.
        virtual const ProtocolDescription* interfaceForPeer() const = 0;

    protected:
        ~Observer() = default;
    };

    // Null, with a line in the log, where the peer is another user's process or the system has no room.
    static std::shared_ptr<PeerLink> create(pavo::UniqueFd socket, Role role);

    PeerLink(pavo::UniqueFd socket, Role role);
    PeerLink(const PeerLink&) = delete;
    PeerLink& operator=(const PeerLink&) = delete;
    ~PeerLink();

    // Before start, or while paused.
    void setObserver(std::weak_ptr<Observer> observer);
    // Reads and writes from now on, or again. False where the link is closed, or has to be.
    bool start();
    // Reads nothing more. What is being written may wait, too.
    void pause();
    // False where the link is lost: its queue is full or its peer is gone. The caller closes it; no observer
    // is told. A message that cannot be made is logged and dropped.
    bool send(OutgoingMessage message);
    // Answers a call of the peer, which has that number; none: tells it that there is no answer. Does nothing
    // where the call has been answered, or the link is closed.
    void answer(std::uint64_t cookie, const std::vector<Argument>* values);
    void close();
    // Closes when the peer has taken what was sent, or does not take it. Reads nothing and tells nobody any
    // more.
    void closeWhenSent();

    std::int32_t processIdentifier() const { return processIdentifier_; }

    void handleEvents(std::uint32_t events) override;

private:
    struct Idle {};
    struct Ignored {};
    struct Authenticated {};
    struct Lost {
        Loss loss;
        std::string reason;  // empty: not worth a line
    };
    using Step = std::variant<Idle, Ignored, Authenticated, IncomingMessage, IncomingReply, Lost>;
    struct SentCall {
        CallNumber number;
        const MethodDescription* method;
    };

    bool checkPeer();
    bool startBus();
    Step advance();
    Step advanceAuthentication();
    Step advanceMessages();
    Step advanceClosing();
    Step takeMessage();
    Step takeCall(BusMessage message);
    Step takeReply(sd_bus_message* message);
    bool keepForAnswer(BusMessage message, IncomingMessage& call);
    Step lostOnRead(MessageReader::Result result) const;
    bool feed() const;
    // Lets the library do what it can. Negative errno where the bus is done for.
    int process(BusMessage* message);
    bool write(const OutgoingMessage& message);
    bool hasQueueOverflown() const;
    bool hasSentAll() const;
    void updateWatch();
    void closeLocked();
    bool isTimedOut() const;

    const Role role_;
    std::int32_t processIdentifier_ = 0;

    std::mutex mutex_;
    pavo::UniqueFd socket_;
    std::weak_ptr<Observer> observer_;
    sd_bus* bus_ = nullptr;
    pavo::UniqueFd feed_;  // to the library's input
    MessageReader reader_;
    SurfaceCache surfaces_;
    std::deque<OutgoingMessage> waiting_;                            // for the authentication
    std::unordered_map<std::uint64_t, SentCall> calls_;              // ours, by their numbers on the bus
    std::unordered_map<std::uint64_t, BusMessage> unansweredCalls_;  // the peer's, by theirs
    IOThread::Token token_ = IOThread::kNoToken;
    IOThread::Clock::time_point timeout_ = IOThread::kNoDeadline;
    bool isAuthenticated_ = false;
    bool hasParsed_ = false;  // the library has seen a message that it understands
    bool isClosing_ = false;  // see closeWhenSent
    bool hasFailed_ = false;  // while answering; reported on the I/O thread
    bool isClosed_ = false;
};

}  // namespace xpc
