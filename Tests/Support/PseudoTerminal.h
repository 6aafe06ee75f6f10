#pragma once

#include "Platform/Support/UniqueFd.h"

#include <sys/types.h>
#include <termios.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace pavo::test {

// A program that runs on a terminal of its own. It has ended when the object is gone: killed if need be.
class PseudoTerminal {
public:
    enum class Access {
        usual,
        asGiven  // the program may not open it anew
    };

    explicit PseudoTerminal(const std::vector<std::string>& arguments, unsigned short columns = 80,
                            unsigned short rows = 24, Access access = Access::usual);
    ~PseudoTerminal();
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    pid_t pid() const { return pid_; }
    void type(const std::string& keys);
    void resize(unsigned short columns, unsigned short rows);
    termios mode() const;
    // Whether the mode is the one that the program found.
    bool isRestored() const;
    // Reads what the program writes until the condition holds of all that it has written. False: it does not
    // before the deadline, or the program has closed the terminal.
    bool readUntil(const std::function<bool(const std::string&)>& condition);
    bool readUntilText(const std::string& text);
    const std::string& output() const { return output_; }
    void forget() { output_.clear(); }
    // Reads on until the program's end; its exit status as ChildProcess has it.
    std::optional<int> waitForExit() { return waitForExit(true); }
    // The same without reading.
    std::optional<int> waitForExitUnread() { return waitForExit(false); }

private:
    bool readSome();
    std::optional<int> waitForExit(bool isReading);

    UniqueFd master_;
    UniqueFd slave_;  // kept open, or the mode of the terminal would go with the program
    termios found_{};
    pid_t pid_ = -1;
    std::string output_;
};

// The same program under a shell, which says "given back" once Ctrl-Z has stopped it, and lets it go on when
// a line is typed. Its exit status is the program's.
std::vector<std::string> underShell(const std::vector<std::string>& arguments);

}  // namespace pavo::test
