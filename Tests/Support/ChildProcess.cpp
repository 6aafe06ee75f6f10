#include "Tests/Support/ChildProcess.h"

#include "Tests/Support/Wait.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <utility>

namespace pavo::test {

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, const std::string& outputPath)
{
    // setpriv ties the program's life to ours and then becomes the program, with the same process id.
    std::vector<std::string> words = {"setpriv", "--pdeathsig", "KILL", "--"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);

    const char* output = outputPath.empty() ? "/dev/null" : outputPath.c_str();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t pid = -1;
    if (posix_spawnp(&pid, pointers[0], &actions, nullptr, pointers.data(), environ) == 0) pid_ = pid;
    posix_spawn_file_actions_destroy(&actions);
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      status_(std::exchange(other.status_, std::nullopt))
{}

ChildProcess& ChildProcess::operator=(ChildProcess other) noexcept
{
    std::swap(pid_, other.pid_);
    std::swap(status_, other.status_);
    return *this;
}

ChildProcess::~ChildProcess()
{
    end(SIGKILL);
}

bool ChildProcess::isRunning()
{
    if (pid_ < 0) return false;
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) != pid_) return true;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    pid_ = -1;
    return false;
}

void ChildProcess::signal(int number) const
{
    if (pid_ > 0) ::kill(pid_, number);
}

std::optional<int> ChildProcess::waitForExit(std::chrono::milliseconds deadline)
{
    waitFor([this] { return !isRunning(); }, deadline);
    return status_;
}

void ChildProcess::end(int number)
{
    signal(number);
    if (pid_ > 0 && !waitForExit(std::chrono::seconds(3))) {
        signal(SIGKILL);
        waitForExit();
    }
}

bool isOnPath(const std::string& program)
{
    const char* path = std::getenv("PATH");
    std::istringstream folders(path ? path : "");
    for (std::string folder; std::getline(folders, folder, ':');)
        if (::access((folder + "/" + program).c_str(), X_OK) == 0) return true;
    return false;
}

std::string readFile(const std::string& path)
{
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

}  // namespace pavo::test
