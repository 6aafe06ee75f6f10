#include "Tools/StopSignal.h"

#include "Platform/Support/Fatal.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <poll.h>
#include <sys/signalfd.h>

namespace pavo::tools {

StopSignal::StopSignal()
{
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGTERM);
    ::sigaddset(&signals, SIGHUP);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    descriptor_ = UniqueFd(::signalfd(-1, &signals, SFD_CLOEXEC));
    require(descriptor_.isValid(), "no descriptor for signals");
    // A reader that goes away is an error of write, not the end of the program.
    ::signal(SIGPIPE, SIG_IGN);
}

bool StopSignal::hasCome() const
{
    return waitUntil(0);
}

bool StopSignal::waitUntil(std::int64_t until) const
{
    pollfd waiting{descriptor_.get(), POLLIN, 0};
    for (;;) {
        const std::int64_t left = until - monotonicNs();
        const timespec timeout{left > 0 ? left / 1'000'000'000 : 0, left > 0 ? left % 1'000'000'000 : 0};
        const int ready = ::ppoll(&waiting, 1, &timeout, nullptr);
        if (ready > 0) return true;
        if (ready == 0) return false;
        require(errno == EINTR, "signals cannot be waited for");
    }
}

void StopSignal::wait() const
{
    pollfd waiting{descriptor_.get(), POLLIN, 0};
    while (::poll(&waiting, 1, -1) < 0)
        require(errno == EINTR, "signals cannot be waited for");
}

std::int64_t monotonicNs()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

}  // namespace pavo::tools
