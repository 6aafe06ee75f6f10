#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace pavo::test {

// A program that a test runs beside itself. It has ended when the object is gone: killed if need be.
//
// Threads: start it from a thread that outlives it (the test's own): the system ends it with that thread, so
//          that a test that crashes leaves nothing behind.
class ChildProcess {
public:
    ChildProcess() = default;
    // Runs `arguments[0]`, found on PATH. Its output and errors go to `outputPath`; empty discards them.
    explicit ChildProcess(const std::vector<std::string>& arguments, const std::string& outputPath = {});
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(ChildProcess other) noexcept;
    ~ChildProcess();

    // -1 where the program could not be started, or has been waited for.
    pid_t pid() const { return pid_; }
    bool isRunning();
    void signal(int number) const;
    // The exit status, 128 + signal for a program that a signal ended; none when it still runs at the
    // deadline.
    std::optional<int> waitForExit(std::chrono::milliseconds deadline = std::chrono::seconds(10));
    // Sends `number`, waits, and kills a program that does not obey.
    void end(int number);

private:
    pid_t pid_ = -1;
    std::optional<int> status_;
};

// True when PATH has a program of that name.
bool isOnPath(const std::string& program);

// Content of a file; empty when there is none.
std::string readFile(const std::string& path);

}  // namespace pavo::test
