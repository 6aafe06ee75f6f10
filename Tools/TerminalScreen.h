#pragma once

#include "Platform/Support/UniqueFd.h"
#include "Tools/Result.h"
#include "Tools/StopSignal.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <termios.h>
#include <vector>

namespace pavo::tools {

struct TerminalSize {
    int columns;
    int rows;
    int cellWidth;  // of a character, in pixels
    int cellHeight;

    bool operator==(const TerminalSize&) const = default;
};

// What is written to go on there, counted from the upper left corner.
std::string moveTo(int row, int column);

// What is written to show these lines from the upper left corner on, in place of what was there. Lines beyond
// the last row are left out.
std::string pageOf(const std::vector<std::string>& lines, std::size_t rows);

// The whole screen of the terminal that standard output is, for drawing; lines that are too long are cut.
// What was on it, and how the terminal worked, is as before when the object has gone, and while the program
// is stopped with Ctrl-Z.
//
// Threads: made on the main thread before any other thread is started, since threads inherit what it blocks.
//          For one thread.
class TerminalScreen final {
public:
    // The problem: standard output is no terminal.
    static Result<std::unique_ptr<TerminalScreen>> open(const StopSignal& stop);
    ~TerminalScreen();
    TerminalScreen(const TerminalScreen&) = delete;
    TerminalScreen& operator=(const TerminalScreen&) = delete;

    // Readable when the size has changed, or the user wants the program to stop for a while.
    int signalDescriptor() const { return signals_.get(); }
    // Deals with what made that descriptor readable. Then all is to be drawn afresh.
    void handleSignals();
    TerminalSize size() const;
    // Readable when a key was pressed.
    int keyDescriptor() const { return terminal_.get(); }
    // The keys that were pressed since, as the terminal sends them; at most a few.
    std::string takeKeys();
    // Waits for a terminal that is slow. False: the program is to end, or the terminal has gone.
    bool write(std::string_view text);

private:
    TerminalScreen(UniqueFd terminal, UniqueFd signals, const termios& before, const StopSignal& stop);
    void enter();
    void leave();
    bool writeUntil(std::string_view text, int stopDescriptor, int patienceMs);

    const UniqueFd terminal_;
    const UniqueFd signals_;
    const termios before_;
    const StopSignal& stop_;
};

}  // namespace pavo::tools
