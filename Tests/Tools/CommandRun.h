#pragma once

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace pavo::test {

// What a command left behind.
struct CommandResult {
    std::optional<int> exitCode;  // none: it did not end
    std::string out;
    std::string err;

    std::vector<std::string> errorLines() const;
    // The events on standard output; fails the test where a line is none.
    std::vector<nlohmann::json> events() const;
};

// Runs commands of pavo in a runtime folder of the test's own, in which there is no camera and no PipeWire.
class CommandTest : public testing::Test {
protected:
    CommandTest();

    std::string path(const std::string& name) const { return folder_.path() + "/" + name; }
    // Standard output and standard error go to the files <name>.out and <name>.err. `input` is a file; empty:
    // nothing.
    ChildProcess start(const std::string& name, const std::vector<std::string>& arguments,
                       const std::string& input = {}) const;
    // What a command of that name has written so far, and how it ended, if it does within the deadline.
    CommandResult resultOf(const std::string& name, ChildProcess& process) const;
    CommandResult run(const std::vector<std::string>& arguments, const std::string& input = {}) const;

private:
    const TemporaryFolder folder_;
};

}  // namespace pavo::test
