#pragma once

#include "Platform/Support/UniqueFd.h"

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace pavo::tools {

// A program that we started. It is told to end when its object goes, and when the thread that started it
// does.
//
// Threads: for one thread.
class ChildProcess final {
public:
    struct Options {
        std::vector<std::string> arguments;                            // the program first, found in PATH
        std::vector<std::pair<std::string, std::string>> environment;  // added to ours
        // Descriptors that become the child's; absent ones are /dev/null.
        UniqueFd standardInput;
        UniqueFd standardOutput;
        UniqueFd standardError;
    };

    // None where the program cannot be started.
    static std::optional<ChildProcess> start(Options options);
    ChildProcess(ChildProcess&& other) noexcept : pid_(std::exchange(other.pid_, -1)), status_(other.status_)
    {}
    ChildProcess& operator=(ChildProcess&& other) noexcept;
    ~ChildProcess();

    pid_t pid() const { return pid_; }
    bool isRunning();
    void signal(int number);
    // Waits for its end. Its exit code, 128 + signal for one that a signal ended, none when time is up.
    std::optional<int> wait(std::chrono::milliseconds deadline);
    // Asks with SIGTERM, then insists with SIGKILL.
    int end(std::chrono::milliseconds patience = std::chrono::seconds(3));

private:
    explicit ChildProcess(pid_t pid) : pid_(pid) {}
    bool reap(bool mayBlock);

    pid_t pid_ = -1;
    std::optional<int> status_;  // exit code once it has ended
};

struct Pipe {
    UniqueFd readEnd;
    UniqueFd writeEnd;

    // Closed in children, but for the end that becomes one of their standard descriptors.
    static Pipe create();
};

// Whether PATH has a program of that name.
bool isProgramInstalled(const std::string& name);

}  // namespace pavo::tools
