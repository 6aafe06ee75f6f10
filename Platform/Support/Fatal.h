#pragma once

#include <string_view>

namespace pavo {

// Where a fatal condition is reported from. Most places use here(); the places whose file and line
// are fixed name them, so that editing a file never changes what the system prints.
struct FatalSite {
    std::string_view file;
    unsigned line;

    static constexpr FatalSite here(const char* file = __builtin_FILE(), unsigned line = __builtin_LINE())
    {
        return {file, line};
    }
};

// Writes "<file>:<line>: Fatal error: <message>" to standard error and ends the process. Every build
// type does this: a fatal check is never compiled out.
[[noreturn]] void fatalError(std::string_view message, FatalSite site = FatalSite::here());

inline void require(bool condition, std::string_view message, FatalSite site = FatalSite::here())
{
    if (!condition) [[unlikely]]
        fatalError(message, site);
}

}  // namespace pavo
