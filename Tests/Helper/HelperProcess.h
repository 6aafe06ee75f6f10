#pragma once

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"

#include <string>
#include <vector>

namespace pavo::test {

// A reference helper that runs beside the test, in the namespace of the test's environment.
class HelperProcess {
public:
    // Has its name when this returns; see isReady. The version is the program's own where none is given.
    explicit HelperProcess(const std::string& behaviour, const std::string& version = {});

    bool isReady() const { return isReady_; }
    // What it has been called for, in order.
    std::vector<std::string> calls() const;
    // Waits until it has been called that often.
    bool waitForCalls(std::size_t count) const;
    ChildProcess& process() { return process_; }

private:
    std::string output() const { return folder_.path() + "/output"; }

    TemporaryFolder folder_;
    ChildProcess process_;
    bool isReady_ = false;
};

}  // namespace pavo::test
