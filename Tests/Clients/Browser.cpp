#include "Tests/Clients/Browser.h"

#include "Tests/Support/ProcessFacts.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>

namespace pavo::test {

namespace {

// Processes whose parents end become this process's children, so that it can end them.
ChildProcess startAsGuardian(const std::vector<std::string>& arguments, const std::string& outputPath)
{
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    return ChildProcess(arguments, outputPath);
}

}  // namespace

Browser::Browser(const std::vector<std::string>& arguments, const std::string& outputPath)
    : process_(startAsGuardian(arguments, outputPath))
{}

Browser::~Browser()
{
    end();
    ::prctl(PR_SET_CHILD_SUBREAPER, 0);
}

bool Browser::has(pid_t process) const
{
    const auto descendants = descendantsOf(pid());
    return process == pid() ||
           std::find(descendants.begin(), descendants.end(), process) != descendants.end();
}

void Browser::end()
{
    if (pid() < 0) return;
    const std::vector<pid_t> descendants = descendantsOf(pid());
    process_.end(SIGTERM);
    // Nobody waited for these in the meantime, so the numbers are still theirs, if only as dead processes.
    for (const pid_t process : descendants) {
        if (::waitpid(process, nullptr, WNOHANG) != 0) continue;
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }
}

}  // namespace pavo::test
