#include "Platform/Support/linux/ProgramName.h"

#ifndef __linux__
#error "Programs are found in Linux's /proc."
#endif

#include <climits>
#include <cstdio>
#include <string_view>
#include <unistd.h>

namespace pavo {

namespace {

// What the kernel adds to the name of a file that was replaced while it ran, as by an update.
constexpr std::string_view kReplaced = " (deleted)";

}  // namespace

std::string programName(pid_t process)
{
    const std::string folder = "/proc/" + std::to_string(process);
    char target[PATH_MAX];
    if (const auto length = readlink((folder + "/exe").c_str(), target, sizeof target); length > 0) {
        std::string_view file(target, static_cast<std::size_t>(length));
        if (file.ends_with(kReplaced)) file.remove_suffix(kReplaced.size());
        return std::string(file.substr(file.rfind('/') + 1));
    }
    std::FILE* const file = std::fopen((folder + "/comm").c_str(), "re");
    if (!file) return {};
    const std::size_t length = std::fread(target, 1, sizeof target, file);
    std::fclose(file);
    const std::string_view text(target, length);
    return std::string(text.substr(0, text.find('\n')));
}

}  // namespace pavo
