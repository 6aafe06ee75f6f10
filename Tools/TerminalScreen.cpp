#include "Tools/TerminalScreen.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <utility>

namespace pavo::tools {
namespace {

// The other screen, no cursor, no wrapping, nothing on it.
constexpr std::string_view kBegin = "\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[2J";
// The first one ends a picture that was not finished, the second one an update.
constexpr std::string_view kEnd = "\x1b\\\x1b[?2026l\x1b[?7h\x1b[0m\x1b[?25h\x1b[?1049l";
// A terminal that takes nothing, as one that was stopped with Ctrl-S, does not keep the program from ending.
constexpr int kPatienceAtEndMs = 500;
// Where the terminal does not tell.
constexpr int kUsualColumns = 80, kUsualRows = 24;
constexpr int kUsualCellWidth = 10, kUsualCellHeight = 20;

// Keys come at once and are not shown; Ctrl-C and Ctrl-Z stay.
termios drawingMode(const termios& before)
{
    termios mode = before;
    mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    mode.c_cc[VMIN] = 1;
    mode.c_cc[VTIME] = 0;
    return mode;
}

sigset_t setOf(std::initializer_list<int> signals)
{
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signal : signals)
        ::sigaddset(&set, signal);
    return set;
}

// Until somebody lets the program go on. By the signal's usual effect, which spares a program that nobody
// could let go on, as one in a window without a shell.
void stopForAWhile()
{
    const sigset_t wish = setOf({SIGTSTP});
    ::raise(SIGTSTP);
    ::pthread_sigmask(SIG_UNBLOCK, &wish, nullptr);
    ::pthread_sigmask(SIG_BLOCK, &wish, nullptr);
}

}  // namespace

std::string moveTo(int row, int column)
{
    return "\x1b[" + std::to_string(row + 1) + ";" + std::to_string(column + 1) + "H";
}

std::string pageOf(const std::vector<std::string>& lines, std::size_t rows)
{
    std::string page = "\x1b[H";
    for (std::size_t index = 0; index < std::min(lines.size(), rows); ++index) {
        if (index > 0) page += "\r\n";
        page += lines[index] + "\x1b[K";
    }
    return page + "\x1b[J";
}

Result<std::unique_ptr<TerminalScreen>> TerminalScreen::open(const StopSignal& stop)
{
    // Opened anew, because the one we were given is shared with the shell, which does not expect a descriptor
    // that never waits.
    UniqueFd terminal(::open("/proc/self/fd/1", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    // Another user's terminal, as after su, may not be opened, only used.
    if (!terminal.isValid()) terminal = UniqueFd(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    termios before{};
    if (::tcgetattr(terminal.get(), &before) != 0)
        return Problem{"the terminal cannot be used: " + std::string(std::strerror(errno))};

    const sigset_t wanted = setOf({SIGWINCH, SIGTSTP});
    ::pthread_sigmask(SIG_BLOCK, &wanted, nullptr);
    UniqueFd signals(::signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals.isValid())
        return Problem{"the terminal's size cannot be watched: " + std::string(std::strerror(errno))};
    return std::unique_ptr<TerminalScreen>(
        new TerminalScreen(std::move(terminal), std::move(signals), before, stop));
}

TerminalScreen::TerminalScreen(UniqueFd terminal, UniqueFd signals, const termios& before,
                               const StopSignal& stop)
    : terminal_(std::move(terminal)),
      signals_(std::move(signals)),
      before_(before),
      stop_(stop)
{
    enter();
}

TerminalScreen::~TerminalScreen()
{
    leave();
}

void TerminalScreen::enter()
{
    const termios mode = drawingMode(before_);
    // First: it stops a program in the background, which would draw over the shell's screen.
    ::tcsetattr(terminal_.get(), TCSANOW, &mode);
    write(kBegin);
}

void TerminalScreen::leave()
{
    writeUntil(kEnd, -1, kPatienceAtEndMs);
    // Keys that were meant for us are not for the shell.
    ::tcflush(terminal_.get(), TCIFLUSH);
    ::tcsetattr(terminal_.get(), TCSANOW, &before_);
}

void TerminalScreen::handleSignals()
{
    signalfd_siginfo signal{};
    while (::read(signals_.get(), &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
        if (signal.ssi_signo != SIGTSTP) continue;
        leave();
        stopForAWhile();
        enter();
    }
}

TerminalSize TerminalScreen::size() const
{
    winsize window{};
    ::ioctl(terminal_.get(), TIOCGWINSZ, &window);
    TerminalSize size{window.ws_col, window.ws_row, kUsualCellWidth, kUsualCellHeight};
    if (size.columns == 0 || size.rows == 0) size.columns = kUsualColumns, size.rows = kUsualRows;
    const int cellWidth = window.ws_xpixel / size.columns, cellHeight = window.ws_ypixel / size.rows;
    if (cellWidth > 0 && cellHeight > 0) size.cellWidth = cellWidth, size.cellHeight = cellHeight;
    return size;
}

std::string TerminalScreen::takeKeys()
{
    std::array<char, 64> keys{};
    const ssize_t count = ::read(terminal_.get(), keys.data(), keys.size());
    return count > 0 ? std::string(keys.data(), static_cast<std::size_t>(count)) : std::string();
}

bool TerminalScreen::write(std::string_view text)
{
    return writeUntil(text, stop_.descriptor(), -1);
}

bool TerminalScreen::writeUntil(std::string_view text, int stopDescriptor, int patienceMs)
{
    while (!text.empty()) {
        const ssize_t count = ::write(terminal_.get(), text.data(), text.size());
        if (count > 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
            continue;
        }
        if (errno != EAGAIN && errno != EINTR) return false;
        // A negative descriptor is left out.
        std::array<pollfd, 2> waiting = {{{terminal_.get(), POLLOUT, 0}, {stopDescriptor, POLLIN, 0}}};
        if (::poll(waiting.data(), waiting.size(), patienceMs) == 0 || waiting[1].revents) return false;
    }
    return true;
}

}  // namespace pavo::tools
