#include "Tools/TerminalScreen.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <utility>

namespace pavo::tools {
namespace {

// The other screen, no cursor, nothing on it.
constexpr std::string_view kBegin = "\x1b[?1049h\x1b[?25l\x1b[2J";
// The first one ends a picture that was not finished, the second one an update.
constexpr std::string_view kEnd = "\x1b\\\x1b[?2026l\x1b[0m\x1b[?25h\x1b[?1049l";
// A terminal that takes nothing, as one that was stopped with Ctrl-S, does not keep the program from ending.
constexpr int kPatienceAtEndMs = 500;
// Of a character, where the terminal does not tell.
constexpr int kUsualCellWidth = 10, kUsualCellHeight = 20;

// Keys come at once and are not shown; Ctrl-C stays. Ctrl-Z would leave the shell with our screen.
termios drawingMode(const termios& before)
{
    termios mode = before;
    mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    mode.c_cc[VMIN] = 1;
    mode.c_cc[VTIME] = 0;
    mode.c_cc[VSUSP] = _POSIX_VDISABLE;
    return mode;
}

}  // namespace

Result<std::unique_ptr<TerminalScreen>> TerminalScreen::open(const StopSignal& stop)
{
    if (::isatty(STDOUT_FILENO) != 1)
        return Problem{
            "standard output is no terminal; \"pavo preview --http\" shows the camera in a browser"};
    const char* kind = std::getenv("TERM");
    if (!kind || !*kind || std::strcmp(kind, "dumb") == 0)
        return Problem{"the terminal can show no pictures: TERM is " +
                       (kind && *kind ? "'" + std::string(kind) + "'" : std::string("not set"))};
    // Opened anew, because the one we were given is shared with the shell, which does not expect a descriptor
    // that never waits.
    UniqueFd terminal(::open("/proc/self/fd/1", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    termios before{};
    if (!terminal.isValid() || ::tcgetattr(terminal.get(), &before) != 0)
        return Problem{"the terminal cannot be used: " + std::string(std::strerror(errno))};

    sigset_t resize;
    ::sigemptyset(&resize);
    ::sigaddset(&resize, SIGWINCH);
    ::pthread_sigmask(SIG_BLOCK, &resize, nullptr);
    UniqueFd resizeSignal(::signalfd(-1, &resize, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!resizeSignal.isValid())
        return Problem{"the terminal's size cannot be watched: " + std::string(std::strerror(errno))};
    return std::unique_ptr<TerminalScreen>(
        new TerminalScreen(std::move(terminal), std::move(resizeSignal), before, stop));
}

TerminalScreen::TerminalScreen(UniqueFd terminal, UniqueFd resizeSignal, const termios& before,
                               const StopSignal& stop)
    : terminal_(std::move(terminal)),
      resizeSignal_(std::move(resizeSignal)),
      before_(before),
      stop_(stop)
{
    const termios mode = drawingMode(before_);
    ::tcsetattr(terminal_.get(), TCSADRAIN, &mode);
    write(kBegin);
}

TerminalScreen::~TerminalScreen()
{
    writeUntil(kEnd, -1, kPatienceAtEndMs);
    // Keys that were meant for the preview are not for the shell.
    ::tcflush(terminal_.get(), TCIFLUSH);
    ::tcsetattr(terminal_.get(), TCSANOW, &before_);
}

TerminalSize TerminalScreen::size()
{
    signalfd_siginfo ignored{};
    while (::read(resizeSignal_.get(), &ignored, sizeof ignored) > 0) {
    }
    winsize window{};
    ::ioctl(terminal_.get(), TIOCGWINSZ, &window);
    TerminalSize size{window.ws_col, window.ws_row, kUsualCellWidth, kUsualCellHeight};
    if (size.columns == 0 || size.rows == 0) size.columns = 80, size.rows = 24;
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
