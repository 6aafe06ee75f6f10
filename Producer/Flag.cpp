#include "Producer/Flag.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace pavo::producer {
namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;

}  // namespace

std::int64_t monotonicNs()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

std::int64_t deadlineAfter(std::int64_t timeoutNs)
{
    if (timeoutNs < 0) return kNever;
    const std::int64_t now = monotonicNs();
    return timeoutNs > kNever - now ? kNever : now + timeoutNs;
}

Flag::Flag() : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void Flag::raise() const
{
    // Fails only when it has been raised more often than can be counted.
    ::eventfd_write(descriptor_.get(), 1);
}

void Flag::lower() const
{
    eventfd_t count = 0;
    ::eventfd_read(descriptor_.get(), &count);
}

pavo_status Flag::waitUntil(std::int64_t deadlineNs) const
{
    pollfd waiting{descriptor_.get(), POLLIN, 0};
    for (;;) {
        const std::int64_t left = std::max<std::int64_t>(deadlineNs - monotonicNs(), 0);
        const timespec timeout{left / kNsPerSecond, left % kNsPerSecond};
        const int result = ::ppoll(&waiting, 1, deadlineNs == kNever ? nullptr : &timeout, nullptr);
        if (result > 0) return PAVO_OK;
        if (result < 0) return errno == EINTR ? PAVO_INTERRUPTED : PAVO_ERROR_RESOURCES;
        if (monotonicNs() >= deadlineNs) return PAVO_TIMED_OUT;
    }
}

}  // namespace pavo::producer
