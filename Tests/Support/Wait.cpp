#include "Tests/Support/Wait.h"

#include <poll.h>

namespace pavo::test {

bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds deadline)
{
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) return false;
        ::poll(nullptr, 0, 1);
    }
    return true;
}

}  // namespace pavo::test
