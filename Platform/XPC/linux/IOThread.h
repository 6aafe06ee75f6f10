#pragma once

#include "Platform/Support/UniqueFd.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace xpc {

// Something that waits for a descriptor, or for a moment.
class EventHandler {
public:
    // Runs on the I/O thread. `events` is 0 where only the deadline has passed.
    virtual void handleEvents(std::uint32_t events) = 0;

protected:
    ~EventHandler() = default;
};

// The one thread that waits for all connections and listeners of the process. It sleeps without a timeout
// while no handler has a deadline.
//
// Ownership: lives from its first use to the end of the process. Keeps its handlers until they are removed.
// Threads:   all functions may be called from any thread, with locks held: no handler runs inside of them. A
//            handler may run once more after it was removed, when it was about to.
// Errors:    a process that cannot have the thread cannot have connections: fatal, once, at the first use.
class IOThread final {
public:
    using Clock = std::chrono::steady_clock;
    using Token = std::uint64_t;
    static constexpr Token kNoToken = 0;
    static constexpr Clock::time_point kNoDeadline = Clock::time_point::max();

    static IOThread& shared();

    // `fd` is borrowed until the handler is removed. kNoToken where the system refuses to watch it.
    Token add(int fd, std::uint32_t events, std::shared_ptr<EventHandler> handler);
    void setEvents(Token token, std::uint32_t events);
    // Runs the handler at that time, once. kNoDeadline takes it back.
    void setDeadline(Token token, Clock::time_point deadline);
    void remove(Token token);

private:
    struct Entry {
        int fd;
        std::uint32_t events;
        std::shared_ptr<EventHandler> handler;
        Clock::time_point deadline = kNoDeadline;
    };

    IOThread();

    [[noreturn]] void run();
    int waitMilliseconds();
    void wake() const;
    void drainWakeUps() const;
    std::shared_ptr<EventHandler> handlerOf(Token token);
    std::vector<std::shared_ptr<EventHandler>> takeDue();

    const pavo::UniqueFd epoll_;
    const pavo::UniqueFd wakeUp_;
    std::mutex mutex_;
    std::unordered_map<Token, Entry> entries_;
    Token lastToken_ = kNoToken;
};

}  // namespace xpc
