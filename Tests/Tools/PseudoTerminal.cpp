#include "Tests/Tools/PseudoTerminal.h"

#include "Tests/Support/Wait.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

namespace pavo::test {

namespace {

constexpr std::chrono::seconds kDeadline(60);
constexpr int kLookMs = 20;

}  // namespace

PseudoTerminal::PseudoTerminal(const std::vector<std::string>& arguments, unsigned short columns,
                               unsigned short rows)
{
    // setpriv ties the program's life to ours and then becomes the program, with the same process id.
    std::vector<std::string> words = {"setpriv", "--pdeathsig", "KILL", "--"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    const winsize size{rows, columns, 0, 0};
    int master = -1;
    std::array<char, 64> name{};
    pid_ = ::forkpty(&master, name.data(), nullptr, &size);
    if (pid_ == 0) {
        ::execvp(pointers[0], pointers.data());
        ::_exit(127);
    }
    master_ = UniqueFd(master);
    slave_ = UniqueFd(::open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
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

}  // namespace pavo::test
