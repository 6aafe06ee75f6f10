#pragma once

#include "Tests/Support/ChildProcess.h"

#include <string>
#include <vector>

namespace pavo::test {

// A browser without a window, and the processes that it starts. None of them is left when it is gone.
//
// Threads: as for ChildProcess.
class Browser {
public:
    // `arguments` begin with the program.
    Browser(const std::vector<std::string>& arguments, const std::string& outputPath);
    ~Browser();
    Browser(const Browser&) = delete;
    Browser& operator=(const Browser&) = delete;

    pid_t pid() const { return process_.pid(); }
    bool isRunning() { return process_.isRunning(); }
    // Whether it is the browser's process, or one that this started.
    bool has(pid_t process) const;
    // Asks it to end, and sees to it that it does.
    void end();

private:
    ChildProcess process_;
};

}  // namespace pavo::test
