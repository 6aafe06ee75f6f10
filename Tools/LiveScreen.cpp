#include "Tools/LiveScreen.h"

#include "Platform/Support/Fatal.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <utility>

namespace pavo::tools {
namespace {

// The second screen of the terminal, without a cursor, and without wrapping: long lines are cut.
constexpr const char* kEnter = "\x1b[?1049h\x1b[?25l\x1b[?7l";
constexpr const char* kLeave = "\x1b[?7h\x1b[?25h\x1b[?1049l";
constexpr std::size_t kUsualRows = 24;

}  // namespace

std::string pageOf(const std::vector<std::string>& lines, std::size_t rows)
{
    std::string page = "\x1b[H";
    for (std::size_t index = 0; index < std::min(lines.size(), rows); ++index) {
        if (index > 0) page += "\r\n";
        page += lines[index] + "\x1b[K";
    }
    return page + "\x1b[J";
}

LiveScreen::LiveScreen(int terminal) : terminal_(terminal)
{
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGWINCH);
    ::sigaddset(&signals, SIGTSTP);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signals_ = UniqueFd(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    require(signals_.isValid(), "no descriptor for signals");
    enter();
}

LiveScreen::~LiveScreen()
{
    leave();
}

void LiveScreen::show(std::vector<std::string> lines)
{
    lines_ = std::move(lines);
    draw();
}

void LiveScreen::handleSignals()
{
    signalfd_siginfo signal{};
    while (::read(signals_.get(), &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
        if (signal.ssi_signo != SIGTSTP) continue;
        leave();
        ::raise(SIGSTOP);
        enter();
    }
    draw();
}

void LiveScreen::enter()
{
    write(kEnter);
}

void LiveScreen::leave()
{
    write(kLeave);
}

void LiveScreen::draw()
{
    winsize size{};
    const bool isKnown = ::ioctl(terminal_, TIOCGWINSZ, &size) == 0 && size.ws_row > 0;
    write(pageOf(lines_, isKnown ? size.ws_row : kUsualRows));
}

void LiveScreen::write(const std::string& text) const
{
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = ::write(terminal_, text.data() + written, text.size() - written);
        // A terminal that has gone: SIGHUP ends the program.
        if (count < 0 && errno != EINTR) return;
        if (count > 0) written += static_cast<std::size_t>(count);
    }
}

}  // namespace pavo::tools
