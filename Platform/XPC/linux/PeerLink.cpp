#include "Platform/XPC/linux/PeerLink.h"

#include "Platform/XPC/linux/Answer.h"
#include "Platform/XPC/linux/WireLimits.h"
#include "Platform/XPC/linux/XPCLog.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <type_traits>
#include <utility>

namespace xpc {

namespace {

// A busy peer must not keep the others waiting.
constexpr int kMaxStepsPerTurn = 32;
// More than the library ever takes for one line or one message.
constexpr int kMaxProcessRounds = 64;

// The library's "never" does not fit into the clock's nanoseconds.
constexpr std::uint64_t kMaxMicroseconds = INT64_MAX / 1000;

std::string errorText(int negativeErrno)
{
    return std::strerror(-negativeErrno);  // NOLINT(concurrency-mt-unsafe): glibc's is per thread
}

}  // namespace

std::shared_ptr<PeerLink> PeerLink::create(pavo::UniqueFd socket, Role role)
{
    auto link = std::make_shared<PeerLink>(std::move(socket), role);
    if (!link->checkPeer() || !link->startBus()) return nullptr;
    return link;
}

PeerLink::PeerLink(pavo::UniqueFd socket, Role role) : role_(role), socket_(std::move(socket)) {}

PeerLink::~PeerLink()
{
    closeLocked();
}

bool PeerLink::checkPeer()
{
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "Cannot tell who the peer is: %m");
        return false;
    }
    if (peer.uid != geteuid() && peer.uid != 0) {
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "Turned away process %d of user %u", peer.pid, peer.uid);
        return false;
    }
    processIdentifier_ = peer.pid;
    return true;
}

bool PeerLink::startBus()
{
    std::array<int, 2> pair{-1, -1};
    int result = fcntl(socket_.get(), F_SETFL, O_NONBLOCK) == 0 &&
                         socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair.data()) == 0
                     ? 0
                     : -errno;
    feed_ = pavo::UniqueFd(pair[0]);
    pavo::UniqueFd input(pair[1]);
    pavo::UniqueFd output(fcntl(socket_.get(), F_DUPFD_CLOEXEC, 3));
    if (result >= 0 && !output.isValid()) result = -errno;
    if (result >= 0) result = sd_bus_new(&bus_);
    if (result >= 0) result = sd_bus_set_fd(bus_, input.get(), output.get());
    if (result >= 0) {
        // The bus has them now.
        static_cast<void>(input.release());
        static_cast<void>(output.release());
        result = sd_bus_negotiate_fds(bus_, 1);
    }
    if (result >= 0 && role_ == Role::server) {
        sd_id128_t id{};
        result = sd_id128_randomize(&id);
        if (result >= 0) result = sd_bus_set_server(bus_, 1, id);
        // The library would compare the name that the peer gives with the owner of the socket pair. Who the
        // peer is has been asked of the kernel.
        if (result >= 0) result = sd_bus_set_anonymous(bus_, 1);
    }
    if (result >= 0)
        result = sd_bus_add_filter(
            bus_, nullptr,
            [](sd_bus_message*, void* link, sd_bus_error*) {
                static_cast<PeerLink*>(link)->hasParsed_ = true;
                return 0;
            },
            this);
    if (result >= 0) result = sd_bus_start(bus_);
    if (result < 0) {
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "Cannot start a connection: %s", errorText(result).c_str());
        return false;
    }
    // The library has made it as large as it could; see kSendBufferBytes.
    setsockopt(socket_.get(), SOL_SOCKET, SO_SNDBUF, &kSendBufferBytes, sizeof(kSendBufferBytes));
    return true;
}

void PeerLink::setObserver(std::weak_ptr<Observer> observer)
{
    const std::lock_guard lock(mutex_);
    observer_ = std::move(observer);
}

bool PeerLink::start()
{
    const std::lock_guard lock(mutex_);
    if (isClosed_) return false;
    if (token_ != IOThread::kNoToken) return true;
    if (role_ == Role::server && !isAuthenticated_)
        timeout_ = IOThread::Clock::now() + kAuthenticationTimeout;
    token_ = IOThread::shared().add(socket_.get(), EPOLLIN, shared_from_this());
    if (token_ == IOThread::kNoToken) {
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "Cannot watch a connection: %m");
        return false;
    }
    updateWatch();
    return true;
}

void PeerLink::pause()
{
    const std::lock_guard lock(mutex_);
    // Removed, not masked: the end of the peer is reported whatever the mask says, again and again.
    IOThread::shared().remove(std::exchange(token_, IOThread::kNoToken));
}

bool PeerLink::send(OutgoingMessage message)
{
    const std::lock_guard lock(mutex_);
    if (isClosed_) return false;
    if (!isAuthenticated_) {
        waiting_.push_back(std::move(message));
        if (waiting_.size() <= kMaxQueuedMessages) return true;
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "Process %d does not answer", processIdentifier_);
        return false;
    }
    if (!write(message)) return false;
    updateWatch();
    return true;
}

void PeerLink::answer(std::uint64_t cookie, const std::vector<Argument>* values)
{
    const std::lock_guard lock(mutex_);
    const auto call = unansweredCalls_.extract(cookie);
    if (call.empty()) return;
    int error = 0;
    const auto encoded = encodeAnswer(call.mapped().get(), values, error);
    if (encoded) error = sd_bus_send(bus_, encoded.get(), nullptr);
    if (error < 0 || hasQueueOverflown()) hasFailed_ = true;
    updateWatch();
}

void PeerLink::close()
{
    const std::lock_guard lock(mutex_);
    closeLocked();
}

void PeerLink::closeWhenSent()
{
    const std::lock_guard lock(mutex_);
    observer_.reset();
    // A paused link does not write either; what lies in it is not worth waking it up.
    if (isClosed_ || hasSentAll() || token_ == IOThread::kNoToken) {
        closeLocked();
        return;
    }
    isClosing_ = true;
    timeout_ = IOThread::Clock::now() + kClosingTimeout;
    updateWatch();
}

void PeerLink::closeLocked()
{
    isClosed_ = true;
    if (token_ != IOThread::kNoToken) IOThread::shared().remove(std::exchange(token_, IOThread::kNoToken));
    waiting_.clear();
    calls_.clear();
    unansweredCalls_.clear();
    reader_.reset();
    surfaces_ = {};
    if (bus_) bus_ = sd_bus_close_unref(bus_);
    feed_.reset();
    socket_.reset();
}

void PeerLink::handleEvents(std::uint32_t)
{
    const auto self = shared_from_this();
    for (int i = 0; i < kMaxStepsPerTurn; ++i) {
        Step step;
        std::shared_ptr<Observer> observer;
        {
            const std::lock_guard lock(mutex_);
            if (isClosed_ || token_ == IOThread::kNoToken) return;
            step = advance();
            observer = observer_.lock();
            if (std::holds_alternative<Lost>(step))
                closeLocked();
            else if (std::holds_alternative<Authenticated>(step) && role_ == Role::server)
                IOThread::shared().remove(std::exchange(token_, IOThread::kNoToken));
            else
                updateWatch();
        }
        if (std::holds_alternative<Idle>(step)) return;
        if (const auto* lost = std::get_if<Lost>(&step)) {
            if (!lost->reason.empty())
                os_log_printf(log(), OS_LOG_TYPE_ERROR, "Lost the connection to process %d: %.300s",
                              processIdentifier_, lost->reason.c_str());
            if (observer) observer->linkWasLost(self, lost->loss);
            return;
        }
        if (!observer) continue;
        if (std::holds_alternative<Authenticated>(step)) observer->linkDidAuthenticate(self);
        if (auto* message = std::get_if<IncomingMessage>(&step))
            observer->linkDidReceive(self, std::move(*message));
        if (auto* reply = std::get_if<IncomingReply>(&step))
            observer->linkDidReceiveReply(self, std::move(*reply));
    }
    // What is left in the socket reports itself again.
}

PeerLink::Step PeerLink::advance()
{
    if (hasFailed_) return Lost{Loss::peerGone, "it does not take its answers"};
    if (isTimedOut() && isClosing_) return Lost{Loss::peerGone, "it does not take the last messages"};
    if (isTimedOut())
        return Lost{isAuthenticated_ ? Loss::violation : Loss::peerGone,
                    isAuthenticated_ ? "a message never ended" : "it did not authenticate"};
    if (!isAuthenticated_) return advanceAuthentication();
    return isClosing_ ? advanceClosing() : advanceMessages();
}

bool PeerLink::isTimedOut() const
{
    const auto now = IOThread::Clock::now();
    if (now >= timeout_) return true;
    std::uint64_t microseconds = 0;
    if (isAuthenticated_ || sd_bus_get_timeout(bus_, &microseconds) <= 0) return false;
    return now.time_since_epoch() >= std::chrono::microseconds(std::min(microseconds, kMaxMicroseconds));
}

PeerLink::Step PeerLink::advanceAuthentication()
{
    const auto result = reader_.readLine(socket_.get());
    if (result != MessageReader::Result::complete && result != MessageReader::Result::incomplete)
        return lostOnRead(result);
    if (result == MessageReader::Result::complete) {
        const bool isFed = feed();
        reader_.reset();
        if (!isFed) return Lost{Loss::peerGone, "no room for its authentication"};
    }
    const int processed = process(nullptr);
    if (processed < 0) return Lost{Loss::peerGone, "authentication: " + errorText(processed)};
    if (sd_bus_is_ready(bus_) <= 0)
        return result == MessageReader::Result::complete ? Step(Ignored{}) : Step(Idle{});
    isAuthenticated_ = true;
    if (!isClosing_) timeout_ = IOThread::kNoDeadline;
    for (; !waiting_.empty(); waiting_.pop_front())
        if (!write(waiting_.front())) return Lost{Loss::peerGone, ""};
    return Authenticated{};
}

PeerLink::Step PeerLink::advanceMessages()
{
    // What the library could not write before.
    BusMessage none;
    const int processed = process(&none);
    if (processed < 0) return Lost{Loss::peerGone, ""};

    const bool wasInside = reader_.isInsideMessage();
    const auto result = reader_.readMessage(socket_.get());
    if (result == MessageReader::Result::incomplete) {
        if (reader_.isInsideMessage() && !wasInside)
            timeout_ = IOThread::Clock::now() + kPartialMessageTimeout;
        return Idle{};
    }
    timeout_ = IOThread::kNoDeadline;
    if (result != MessageReader::Result::complete) return lostOnRead(result);
    auto step = takeMessage();
    reader_.reset();
    return step;
}

PeerLink::Step PeerLink::advanceClosing()
{
    BusMessage none;
    const int processed = process(&none);
    return processed < 0 || hasSentAll() ? Step(Lost{Loss::peerGone, ""}) : Step(Idle{});
}

PeerLink::Step PeerLink::takeMessage()
{
    if (!feed()) return Lost{Loss::peerGone, "no room for its message"};
    BusMessage message;
    hasParsed_ = false;
    const int processed = process(&message);
    if (processed < 0) return Lost{Loss::violation, "broken message: " + errorText(processed)};
    // The library drops a broken message without a word.
    if (!hasParsed_) return Lost{Loss::violation, "broken message"};
    std::uint8_t type = 0;
    if (message && sd_bus_message_get_type(message.get(), &type) >= 0) {
        if (type == SD_BUS_MESSAGE_METHOD_CALL) return takeCall(std::move(message));
        if (type != SD_BUS_MESSAGE_SIGNAL) return takeReply(message.get());
    }
    // A ping, which the library has answered; or a signal, which nobody waits for.
    return hasQueueOverflown() ? Step(Lost{Loss::peerGone, "it does not read"}) : Step(Ignored{});
}

PeerLink::Step PeerLink::takeCall(BusMessage message)
{
    const auto observer = observer_.lock();
    auto decoded =
        decode(message.get(), reader_, observer ? observer->interfaceForPeer() : nullptr, surfaces_);
    if (auto* refusal = std::get_if<Refusal>(&decoded)) return Lost{Loss::violation, std::move(*refusal)};
    auto call = std::get<IncomingMessage>(std::move(decoded));
    const bool wantsAnswer = sd_bus_message_get_expect_reply(message.get()) > 0;
    if (call.method->reply) {
        // Whoever calls without waiting for the answer gets none.
        call.reply = [](std::span<const Argument>) {};
        if (wantsAnswer && !keepForAnswer(std::move(message), call))
            return Lost{Loss::violation, "too many calls wait for an answer, or two have one number"};
    } else if (wantsAnswer) {
        // A peer that asks for an answer to a one-way message gets an empty one.
        const int replied = sd_bus_reply_method_return(message.get(), "");
        if (replied < 0 || hasQueueOverflown()) return Lost{Loss::peerGone, "it does not read"};
    }
    return call;
}

bool PeerLink::keepForAnswer(BusMessage message, IncomingMessage& call)
{
    std::uint64_t cookie = 0;
    if (unansweredCalls_.size() >= kMaxUnansweredCalls ||
        sd_bus_message_get_cookie(message.get(), &cookie) < 0 ||
        !unansweredCalls_.emplace(cookie, std::move(message)).second)
        return false;
    call.reply = [answer = std::make_shared<Answer>(weak_from_this(), cookie, *call.method)](
                     std::span<const Argument> values) { answer->give(values); };
    return true;
}

PeerLink::Step PeerLink::takeReply(sd_bus_message* message)
{
    std::uint64_t cookie = 0;
    if (sd_bus_message_get_reply_cookie(message, &cookie) < 0) return Ignored{};
    // An answer to nothing, and a second one, concern nobody.
    const auto call = calls_.extract(cookie);
    if (call.empty()) return Ignored{};
    auto decoded = decodeAnswer(message, reader_, *call.mapped().method, surfaces_);
    if (const auto* refusal = std::get_if<Refusal>(&decoded)) {
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "No reply of process %d: %.300s", processIdentifier_,
                      refusal->c_str());
        return IncomingReply{call.mapped().number, std::nullopt};
    }
    return IncomingReply{call.mapped().number, std::get<std::vector<Argument>>(std::move(decoded))};
}

PeerLink::Step PeerLink::lostOnRead(MessageReader::Result result) const
{
    if (result == MessageReader::Result::rejected) return Lost{Loss::violation, reader_.rejection()};
    // A message that its peer did not finish is nobody's; the end itself is no error.
    return Lost{Loss::peerGone, reader_.isInsideMessage() ? "it ended inside a message" : ""};
}

bool PeerLink::feed() const
{
    // The library has taken all that came before, so there is room for the largest message.
    const auto bytes = reader_.bytes();
    return ::send(feed_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

int PeerLink::process(BusMessage* message)
{
    for (int i = 0; i < kMaxProcessRounds; ++i) {
        sd_bus_message* received = nullptr;
        const int result = sd_bus_process(bus_, message ? &received : nullptr);
        if (received) *message = BusMessage(received);
        if (result < 0) return result;
        if (sd_bus_is_open(bus_) <= 0) return -ECONNRESET;
        if (result == 0 || received) return 0;
    }
    return 0;
}

bool PeerLink::write(const OutgoingMessage& message)
{
    int error = 0;
    const auto encoded = encode(bus_, message, error);
    std::uint64_t cookie = 0;
    if (encoded) error = sd_bus_send(bus_, encoded.get(), message.call == kNoCall ? nullptr : &cookie);
    if (error >= 0 && message.call != kNoCall) calls_[cookie] = {message.call, message.target.method};
    if (error == -EOPNOTSUPP || error == -EMFILE || error == -ENFILE || error == -EINVAL) {
        // The peer does not take descriptors, there are none, or there is no surface: it stays connected.
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "Cannot send %s: %s",
                      std::string(message.target.method->selector).c_str(), errorText(error).c_str());
        return true;
    }
    if (error < 0) {
        os_log_printf(log(), OS_LOG_TYPE_INFO, "Process %d is gone: %s", processIdentifier_,
                      errorText(error).c_str());
        return false;
    }
    if (!hasQueueOverflown()) return true;
    os_log_printf(log(), OS_LOG_TYPE_ERROR, "Lost the connection to process %d: it does not read",
                  processIdentifier_);
    return false;
}

bool PeerLink::hasQueueOverflown() const
{
    std::uint64_t queued = 0;
    return sd_bus_get_n_queued_write(bus_, &queued) >= 0 && queued > kMaxQueuedMessages;
}

bool PeerLink::hasSentAll() const
{
    std::uint64_t queued = 0;
    return isAuthenticated_ && sd_bus_get_n_queued_write(bus_, &queued) >= 0 && queued == 0;
}

void PeerLink::updateWatch()
{
    if (token_ == IOThread::kNoToken) return;
    const int events = sd_bus_get_events(bus_);
    const bool isReading = !isAuthenticated_ || !isClosing_;
    const bool hasMoreToWrite = events > 0 && (events & EPOLLOUT) != 0;
    IOThread::shared().setEvents(token_, (isReading ? EPOLLIN : 0U) | (hasMoreToWrite ? EPOLLOUT : 0U));
    auto deadline = hasFailed_ ? IOThread::Clock::now() : timeout_;
    std::uint64_t microseconds = 0;
    if (!isAuthenticated_ && sd_bus_get_timeout(bus_, &microseconds) > 0)
        deadline = std::min(deadline, IOThread::Clock::time_point(std::chrono::microseconds(
                                          std::min(microseconds, kMaxMicroseconds))));
    IOThread::shared().setDeadline(token_, deadline);
}

}  // namespace xpc
