#include "Tests/MacOS/Doubles/Calls.h"

#include <mutex>
#include <utility>

namespace pavo::test {

namespace {

std::mutex mutex;
std::vector<std::string> recorded;

}  // namespace

void recordCall(std::string call)
{
    const std::lock_guard lock(mutex);
    recorded.push_back(std::move(call));
}

std::vector<std::string> calls()
{
    const std::lock_guard lock(mutex);
    return recorded;
}

void forgetCalls()
{
    const std::lock_guard lock(mutex);
    recorded.clear();
}

}  // namespace pavo::test
