#include "Platform/XPC/linux/IOThread.h"

#include "Platform/Support/Fatal.h"

#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <thread>
#include <utility>

namespace xpc {

namespace {

constexpr int kMaxEventsAtOnce = 32;
// The wake-up descriptor's place among the tokens; no handler gets it.
constexpr IOThread::Token kWakeUpToken = IOThread::kNoToken;

}  // namespace

IOThread& IOThread::shared()
{
    // Never destroyed: connections of other static objects may outlive any order of destruction.
    static auto* const instance = new IOThread;
    return *instance;
}

IOThread::IOThread() : epoll_(epoll_create1(EPOLL_CLOEXEC)), wakeUp_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    pavo::require(epoll_.isValid() && wakeUp_.isValid(), "Failed to create the XPC I/O thread's descriptors");
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = kWakeUpToken;
    pavo::require(epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, wakeUp_.get(), &event) == 0,
                  "Failed to watch the XPC I/O thread's wake-up");

    // Signals are for the threads of the program; this one would interrupt its waiting for nothing.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread([this] { run(); }).detach();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

IOThread::Token IOThread::add(int fd, std::uint32_t events, std::shared_ptr<EventHandler> handler)
{
    const std::lock_guard lock(mutex_);
    const Token token = ++lastToken_;
    epoll_event event{};
    event.events = events;
    event.data.u64 = token;
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) return kNoToken;
    entries_.emplace(token, Entry{fd, events, std::move(handler)});
    return token;
}

void IOThread::setEvents(Token token, std::uint32_t events)
{
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(token);
    if (found == entries_.end() || found->second.events == events) return;
    found->second.events = events;
    epoll_event event{};
    event.events = events;
    event.data.u64 = token;
    epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, found->second.fd, &event);
}

void IOThread::setDeadline(Token token, Clock::time_point deadline)
{
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(token);
    if (found == entries_.end()) return;
    const bool isEarlier = deadline < found->second.deadline;
    found->second.deadline = deadline;
    if (isEarlier) wake();
}

void IOThread::remove(Token token)
{
    std::shared_ptr<EventHandler> removed;  // may be the last reference: destroyed outside the lock
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(token);
    if (found == entries_.end()) return;
    epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, found->second.fd, nullptr);
    removed = std::move(found->second.handler);
    entries_.erase(found);
}

void IOThread::run()
{
    pthread_setname_np(pthread_self(), "pavo-xpc");
    std::array<epoll_event, kMaxEventsAtOnce> events{};
    for (;;) {
        const int count = epoll_wait(epoll_.get(), events.data(), kMaxEventsAtOnce, waitMilliseconds());
        for (int i = 0; i < count; ++i) {
            const auto& event = events[static_cast<std::size_t>(i)];
            if (event.data.u64 == kWakeUpToken)
                drainWakeUps();
            else if (const auto handler = handlerOf(event.data.u64))
                handler->handleEvents(event.events);
        }
        for (const auto& handler : takeDue())
            handler->handleEvents(0);
    }
}

int IOThread::waitMilliseconds()
{
    const std::lock_guard lock(mutex_);
    auto earliest = kNoDeadline;
    for (const auto& [token, entry] : entries_)
        earliest = std::min(earliest, entry.deadline);
    if (earliest == kNoDeadline) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(earliest - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, 60'000));
}

void IOThread::wake() const
{
    // Fails only while the counter is full of wake-ups that are still to be seen.
    eventfd_write(wakeUp_.get(), 1);
}

void IOThread::drainWakeUps() const
{
    eventfd_t count = 0;
    eventfd_read(wakeUp_.get(), &count);
}

std::shared_ptr<EventHandler> IOThread::handlerOf(Token token)
{
    const std::lock_guard lock(mutex_);
    const auto found = entries_.find(token);
    return found == entries_.end() ? nullptr : found->second.handler;
}

std::vector<std::shared_ptr<EventHandler>> IOThread::takeDue()
{
    std::vector<std::shared_ptr<EventHandler>> due;
    const std::lock_guard lock(mutex_);
    const auto now = Clock::now();
    for (auto& [token, entry] : entries_)
        if (entry.deadline <= now) {
            entry.deadline = kNoDeadline;
            due.push_back(entry.handler);
        }
    return due;
}

}  // namespace xpc
