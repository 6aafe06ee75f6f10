#include "Tests/Support/PseudoTerminal.h"

#include "Tests/Support/Wait.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include <array>
#include <cstring>

namespace pavo::test {

namespace {

constexpr std::chrono::seconds kDeadline(60);
constexpr int kLookMs = 20;

}  // namespace

PseudoTerminal::PseudoTerminal(const std::vector<std::string>& arguments, unsigned short columns,
                               unsigned short rows, Access access)
{
    // setpriv ties the program's life to ours and then becomes the program, with the same process id.
    std::vector<std::string> words = {"setpriv", "--pdeathsig", "KILL"};
    // Root may open everything.
    if (access == Access::asGiven && ::geteuid() == 0)
        words.insert(words.end(), {"--bounding-set", "-dac_override"});
    words.push_back("--");
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    const winsize size{rows, columns, 0, 0};
    int master = -1, slave = -1;
    if (::openpty(&master, &slave, nullptr, nullptr, &size) != 0) return;
    master_ = UniqueFd(master);
    slave_ = UniqueFd(slave);
    // For children that other threads start.
    ::fcntl(master, F_SETFD, FD_CLOEXEC);
    ::fcntl(slave, F_SETFD, FD_CLOEXEC);
    found_ = mode();
    if (access == Access::asGiven) ::fchmod(slave, 0);
    pid_ = ::fork();
    if (pid_ != 0) return;
    ::login_tty(slave);
    ::execvp(pointers[0], pointers.data());
    ::_exit(127);
}

PseudoTerminal::~PseudoTerminal()
{
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
}

void PseudoTerminal::type(const std::string& keys)
{
    const ssize_t count = ::write(master_.get(), keys.data(), keys.size());
    (void)count;
}

void PseudoTerminal::resize(unsigned short columns, unsigned short rows)
{
    const winsize size{rows, columns, 0, 0};
    ::ioctl(master_.get(), TIOCSWINSZ, &size);
}

termios PseudoTerminal::mode() const
{
    termios mode{};
    ::tcgetattr(slave_.get(), &mode);
    return mode;
}

bool PseudoTerminal::isRestored() const
{
    const termios now = mode();
    return now.c_lflag == found_.c_lflag && now.c_iflag == found_.c_iflag &&
           std::memcmp(now.c_cc, found_.c_cc, sizeof now.c_cc) == 0;
}

bool PseudoTerminal::readSome()
{
    pollfd waiting{master_.get(), POLLIN, 0};
    if (::poll(&waiting, 1, kLookMs) <= 0) return false;
    std::array<char, 65536> buffer{};
    const ssize_t count = ::read(master_.get(), buffer.data(), buffer.size());
    if (count > 0) output_.append(buffer.data(), static_cast<std::size_t>(count));
    return count > 0;
}

bool PseudoTerminal::readUntil(const std::function<bool(const std::string&)>& condition)
{
    return waitFor(
        [&] {
            readSome();
            return condition(output_);
        },
        kDeadline);
}

bool PseudoTerminal::readUntilText(const std::string& text)
{
    return readUntil([&text](const std::string& all) { return all.find(text) != std::string::npos; });
}

std::optional<int> PseudoTerminal::waitForExit(bool isReading)
{
    int status = 0;
    const bool hasEnded = waitFor(
        [&] {
            if (isReading) readSome();
            return ::waitpid(pid_, &status, WNOHANG) == pid_;
        },
        kDeadline);
    if (!hasEnded) return std::nullopt;
    pid_ = -1;
    while (isReading && readSome()) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<std::string> underShell(const std::vector<std::string>& arguments)
{
    std::vector<std::string> words = {"sh", "-c", R"(set -m; "$@"; echo given back; read -r line; fg)", "sh"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

}  // namespace pavo::test
