#pragma once

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"

#include <cstdint>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace pavo::test {

// One frame as `pavo view --json --trace` saw it.
struct ViewedFrame {
    std::uint64_t sequence = 0;
    std::int64_t sentNs = 0;               // by the camera's clock, which is CLOCK_MONOTONIC
    std::optional<std::uint32_t> counter;  // of the test pattern; the placeholder has none
};

// The program under test.
const std::string& pavoProgram();

// A program that has ended, and all it wrote. No status: a signal ended it, or it had to be killed.
struct Ended {
    std::optional<int> status;
    std::string output;
};
Ended runToItsEnd(const std::vector<std::string>& command);

// A `pavo` command that runs with --json beside the test, or a program that reports like one. What it writes
// is read as it comes.
//
// Threads: for one thread, the test's own.
class PavoProcess {
public:
    // `arguments` without the program and without --json.
    explicit PavoProcess(std::vector<std::string> arguments, const std::string& program = pavoProgram());

    pid_t pid() const { return process_.pid(); }
    bool isRunning() { return process_.isRunning(); }
    void signal(int number) const { process_.signal(number); }
    // Sends SIGTERM where it is not 0, and gives back the exit status, or none when it has to be killed.
    std::optional<int> end(int number);

    // What it has reported, each as "name" or "name pid", without frames.
    const std::vector<std::string>& story();
    // The same as it was written. Null where there is none of that name.
    nlohmann::json lastReport(const std::string& name);
    const std::vector<ViewedFrame>& frames();
    // Lines that are no reports: errors and log.
    const std::vector<std::string>& texts();

private:
    void read();
    void take(const std::string& line);

    TemporaryFolder folder_;
    ChildProcess process_;
    std::ifstream output_;
    std::string partOfLine_;
    std::vector<std::string> story_;
    std::vector<nlohmann::json> reports_;
    std::vector<ViewedFrame> frames_;
    std::vector<std::string> texts_;
};

}  // namespace pavo::test
