#pragma once

#include "Platform/Support/UniqueFd.h"
#include "Tools/Result.h"
#include "Tools/StopSignal.h"

#include <memory>
#include <string>
#include <string_view>
#include <termios.h>

namespace pavo::tools {

struct TerminalSize {
    int columns;
    int rows;
    int cellWidth;  // of a character, in pixels
    int cellHeight;

    bool operator==(const TerminalSize&) const = default;
};

// The whole screen of the terminal that standard output is, for drawing. What was on it, and how the terminal
// worked, is as before when the object has gone.
//
// Threads: made on the main thread before any other thread is started, since threads inherit what it blocks.
//          For one thread.
class TerminalScreen final {
public:
    // The problem: standard output is no terminal, or one that cannot be drawn on.
    static Result<std::unique_ptr<TerminalScreen>> open(const StopSignal& stop);
    ~TerminalScreen();
    TerminalScreen(const TerminalScreen&) = delete;
    TerminalScreen& operator=(const TerminalScreen&) = delete;

    // Readable when the size has changed; then ask for it.
    int resizeDescriptor() const { return resizeSignal_.get(); }
    TerminalSize size();
    // Readable when a key was pressed.
    int keyDescriptor() const { return terminal_.get(); }
    // The keys that were pressed since, as the terminal sends them; at most a few.
    std::string takeKeys();
    // Waits for a terminal that is slow. False: the program is to end, or the terminal has gone.
    bool write(std::string_view text);

private:
    TerminalScreen(UniqueFd terminal, UniqueFd resizeSignal, const termios& before, const StopSignal& stop);
    bool writeUntil(std::string_view text, int stopDescriptor, int patienceMs);

    const UniqueFd terminal_;
    const UniqueFd resizeSignal_;
    const termios before_;
    const StopSignal& stop_;
};

}  // namespace pavo::tools
