#include "MainBundle.h"

#include <unistd.h>

#include <climits>
#include <filesystem>

namespace pavo::servicemanagement {

std::string mainBundlePath()
{
    namespace fs = std::filesystem;
    char target[PATH_MAX];
    const auto length = readlink("/proc/self/exe", target, sizeof target);
    if (length <= 0) return {};
    const fs::path program(std::string(target, static_cast<std::size_t>(length)));
    std::error_code ignored;
    for (auto folder = program.parent_path(); folder.has_relative_path(); folder = folder.parent_path())
        if (folder.filename() == "Contents" && fs::is_regular_file(folder / "Info.plist", ignored))
            return folder.parent_path();
    return fs::exists(program, ignored) ? program.parent_path().string() : std::string();
}

}  // namespace pavo::servicemanagement
