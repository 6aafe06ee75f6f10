#pragma once

#include "Platform/Support/UniqueFd.h"

#include <cstddef>
#include <string>
#include <vector>

namespace pavo::tools {

// What is written to a terminal to show these lines from its upper left corner on, in place of what was
// there. Lines beyond the last row are left out.
std::string pageOf(const std::vector<std::string>& lines, std::size_t rows);

// A terminal that shows one page, again and again. What it showed before comes back at the end, and while the
// program is stopped with Ctrl-Z.
//
// Threads: made on the main thread before any other thread is started, since threads inherit what it blocks;
//          used there.
class LiveScreen final {
public:
    // `terminal` is borrowed.
    explicit LiveScreen(int terminal);
    ~LiveScreen();
    LiveScreen(const LiveScreen&) = delete;
    LiveScreen& operator=(const LiveScreen&) = delete;

    void show(std::vector<std::string> lines);
    // Readable when the terminal's size has changed, or the user wants the program to stop for a while.
    int descriptor() const { return signals_.get(); }
    // Deals with what made the descriptor readable.
    void handleSignals();

private:
    void enter();
    void leave();
    void draw();
    void write(const std::string& text) const;

    const int terminal_;
    UniqueFd signals_;
    std::vector<std::string> lines_;
};

}  // namespace pavo::tools
