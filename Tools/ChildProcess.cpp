#include "Tools/ChildProcess.h"

#include "Platform/Support/Fatal.h"
#include "Tools/StopSignal.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace pavo::tools {
namespace {

std::vector<std::string> environmentWith(const std::vector<std::pair<std::string, std::string>>& added)
{
    std::vector<std::string> result;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text(*entry);
        bool isReplaced = false;
        for (const auto& [name, value] : added)
            isReplaced = isReplaced || text.starts_with(name + "=");
        if (!isReplaced) result.push_back(text);
    }
    for (const auto& [name, value] : added)
        result.push_back(name + "=" + value);
    return result;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (auto& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// The path of a program; empty where PATH has none.
std::string findProgram(const std::string& name)
{
    if (name.find('/') != std::string::npos) return ::access(name.c_str(), X_OK) == 0 ? name : std::string();
    const char* path = std::getenv("PATH");
    std::istringstream folders(path ? path : "/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::string candidate = folder + "/" + name;
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return {};
}

// In the child, between fork and exec: only what may be called there.
[[noreturn]] void become(const char* program, char* const* arguments, char* const* environment,
                         const std::array<int, 3>& descriptors, pid_t parent)
{
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) ::_exit(127);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::signal(SIGPIPE, SIG_DFL);
    for (int target = 0; target < 3; ++target)
        if (::dup2(descriptors[static_cast<std::size_t>(target)], target) < 0) ::_exit(127);
    ::execve(program, arguments, environment);
    ::_exit(127);
}

}  // namespace

std::optional<ChildProcess> ChildProcess::start(Options options)
{
    const std::string program = findProgram(options.arguments.at(0));
    if (program.empty()) return std::nullopt;
    auto environment = environmentWith(options.environment);
    const auto environmentPointers = pointersTo(environment);
    const auto argumentPointers = pointersTo(options.arguments);

    const UniqueFd nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
    std::array<int, 3> descriptors{};
    const std::array<const UniqueFd*, 3> wanted = {&options.standardInput, &options.standardOutput,
                                                   &options.standardError};
    std::vector<UniqueFd> high;  // above the standard ones, so that none of them is overwritten too early
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        const int source = wanted[i]->isValid() ? wanted[i]->get() : nothing.get();
        high.emplace_back(::fcntl(source, F_DUPFD_CLOEXEC, 3));
        descriptors[i] = high.back().get();
    }
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid < 0) return std::nullopt;
    if (pid == 0)
        become(program.c_str(), argumentPointers.data(), environmentPointers.data(), descriptors, parent);
    return ChildProcess(pid);
}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept
{
    if (this == &other) return *this;
    if (pid_ > 0) end();
    pid_ = std::exchange(other.pid_, -1);
    status_ = other.status_;
    return *this;
}

ChildProcess::~ChildProcess()
{
    if (pid_ > 0) end();
}

bool ChildProcess::reap(bool mayBlock)
{
    if (pid_ <= 0 || status_) return true;
    int status = 0;
    pid_t done = 0;
    do {
        done = ::waitpid(pid_, &status, mayBlock ? 0 : WNOHANG);
    } while (done < 0 && errno == EINTR);
    if (done == 0) return false;
    status_ = done < 0 ? 127 : WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return true;
}

bool ChildProcess::isRunning()
{
    return !reap(false);
}

void ChildProcess::signal(int number)
{
    // Until it is reaped the process id is still its own.
    if (pid_ > 0 && !reap(false)) ::kill(pid_, number);
}

std::optional<int> ChildProcess::wait(std::chrono::milliseconds deadline)
{
    if (reap(false)) return status_;
    const UniqueFd process(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
    require(process.isValid(), "no descriptor for a child process");
    const std::int64_t until = monotonicNs() + std::chrono::nanoseconds(deadline).count();
    pollfd waiting{process.get(), POLLIN, 0};
    for (;;) {
        const std::int64_t left = until - monotonicNs();
        const int ready = ::poll(&waiting, 1, left > 0 ? static_cast<int>(left / 1'000'000 + 1) : 0);
        if (ready > 0) reap(true);
        if (ready > 0 || (ready == 0 && left <= 0)) return status_;
    }
}

int ChildProcess::end(std::chrono::milliseconds patience)
{
    signal(SIGTERM);
    if (!wait(patience)) {
        signal(SIGKILL);
        reap(true);
    }
    pid_ = -1;
    return status_.value_or(0);
}

Pipe Pipe::create()
{
    std::array<int, 2> ends{};
    require(::pipe2(ends.data(), O_CLOEXEC) == 0, "no pipe");
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

bool isProgramInstalled(const std::string& name)
{
    return !findProgram(name).empty();
}

}  // namespace pavo::tools
