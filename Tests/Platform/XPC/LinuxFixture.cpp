#include "Tests/Platform/XPC/LinuxFixture.h"

#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Wait.h"

#include <mach/port_private.h>
#include <os/log.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <utility>
#include <vector>

namespace pavo::test {

namespace {

struct LogLine {
    os_log_type_t type;
    std::string text;
};

std::mutex logMutex;
// Never destroyed: the connections' thread logs until the process is gone.
std::vector<LogLine>& logLines = *new std::vector<LogLine>;

// Set before any thread exists: threads that look names up read the environment.
class PrivateNamespace final : public testing::Environment {
public:
    void SetUp() override { ::setenv("PAVO_BOOTSTRAP_DIR", folder_.path().c_str(), 1); }

private:
    TemporaryFolder folder_;
};

[[maybe_unused]] const auto* const privateNamespace = testing::AddGlobalTestEnvironment(new PrivateNamespace);

class Linux final : public TestSystem {
public:
    Linux()
    {
        {
            const std::lock_guard lock(logMutex);
            logLines.clear();
        }
        // What the process opens once and keeps is open before the count.
        const auto first = xpc::Listener::anonymousListener();
        first->resume();
        const auto connection = xpc::Connection::withListenerEndpoint(first->endpoint());
        const auto counts = countHandlers(*connection);
        connection->resume();
        EXPECT_TRUE(waitFor([&counts] { return counts->invalidations == 1; }));  // nobody accepts it
        first->invalidate();
        descriptorCount_ = openDescriptorCount();
    }

    void expectNothingLeft() override
    {
        EXPECT_TRUE(waitFor([this] { return openDescriptorCount() == descriptorCount_; }))
            << openDescriptorCount() << " descriptors, not " << descriptorCount_;
    }

private:
    std::size_t descriptorCount_ = 0;
};

}  // namespace

std::unique_ptr<TestSystem> makeTestSystem()
{
    return std::make_unique<Linux>();
}

extern "C" void __wrap_os_log_printf(os_log_t, os_log_type_t type, const char* format, ...)
{
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    const std::lock_guard lock(logMutex);
    logLines.push_back({type, text});
}

std::string ownProcess()
{
    return "process " + std::to_string(::getpid());
}

bool hasLogged(const std::string& part)
{
    const std::lock_guard lock(logMutex);
    return std::any_of(logLines.begin(), logLines.end(),
                       [&part](const LogLine& line) { return line.text.find(part) != std::string::npos; });
}

std::size_t loggedErrorCount()
{
    const std::lock_guard lock(logMutex);
    return static_cast<std::size_t>(std::count_if(logLines.begin(), logLines.end(), [](const LogLine& line) {
        return line.type == OS_LOG_TYPE_ERROR;
    }));
}

RawPeer connectRaw(xpc::Listener& listener)
{
    const auto endpoint = listener.endpoint();
    mach_port_t socket = MACH_PORT_NULL;
    EXPECT_EQ(mach_port_connect(xpc::ListenerEndpoint::machPort(endpoint.object()), &socket), KERN_SUCCESS);
    return RawPeer(UniqueFd(static_cast<int>(socket)));
}

std::uint64_t inodeOf(IOSurfaceRef surface)
{
    const UniqueFd descriptor(static_cast<int>(IOSurfaceCreateMachPort(surface)));
    struct stat status{};
    EXPECT_EQ(::fstat(descriptor.get(), &status), 0);
    return status.st_ino;
}

std::size_t mappedSurfaceCount()
{
    std::ifstream maps("/proc/self/maps");
    std::size_t count = 0;
    for (std::string line; std::getline(maps, line);)
        if (line.find("/memfd:") != std::string::npos) ++count;
    return count;
}

std::string peerProgram()
{
    return XPC_TEST_PEER;
}

}  // namespace pavo::test
