#include "Tests/MacOS/Doubles/SystemDouble.h"

#include "Tests/MacOS/Doubles/Calls.h"

#include <dlfcn.h>
#include <servers/bootstrap.h>

#include <algorithm>
#include <mutex>

extern "C" [[gnu::visibility("hidden")]] void* __dso_handle;

namespace pavo::test {

namespace {

std::mutex mutex;
std::vector<Registration> registered;
std::vector<LoggedMessage> logged;

bool isInThisImage(const void* address)
{
    Dl_info here{};
    Dl_info there{};
    return dladdr(&__dso_handle, &here) && dladdr(address, &there) && here.dli_fbase == there.dli_fbase;
}

}  // namespace

std::vector<Registration> registrations()
{
    const std::lock_guard lock(mutex);
    return registered;
}

std::vector<LoggedMessage> loggedMessages()
{
    const std::lock_guard lock(mutex);
    return logged;
}

bool wasLogged(const std::string& format)
{
    const auto messages = loggedMessages();
    return std::any_of(messages.begin(), messages.end(),
                       [&format](const LoggedMessage& message) { return message.format == format; });
}

void forgetSystemCalls()
{
    const std::lock_guard lock(mutex);
    registered.clear();
    logged.clear();
}

}  // namespace pavo::test

using namespace pavo::test;

extern "C" {

kern_return_t __wrap_bootstrap_parent(mach_port_t, mach_port_t* parent)
{
    *parent = kParentNamespace;
    return BOOTSTRAP_SUCCESS;
}

// Refuses, as the system may: nobody looks at the answer.
kern_return_t __wrap_bootstrap_register(mach_port_t bootstrapPort, char* name, mach_port_t port)
{
    recordCall("bootstrap_register");
    const std::lock_guard lock(mutex);
    registered.push_back({bootstrapPort, name, port});
    return BOOTSTRAP_NOT_PRIVILEGED;
}

void __wrap__os_log_impl(void* dso, os_log_t, os_log_type_t type, const char* format, std::uint8_t* buffer,
                         std::uint32_t)
{
    const std::lock_guard lock(mutex);
    logged.push_back({format, type, buffer[1], dso == &__dso_handle && isInThisImage(format)});
}

}  // extern "C"
