#include "Tools/ProgramPaths.h"

#include <filesystem>
#include <system_error>

namespace pavo::tools {

std::string programPath()
{
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).string();
}

std::string defaultBundlePath()
{
    const auto folder = std::filesystem::path(programPath()).parent_path();
    const auto beside = folder / "CMIOExtensionSupport.bundle";
    std::error_code error;
    if (std::filesystem::exists(beside, error)) return beside.string();
    return (folder / PAVO_BUNDLE_FROM_COMMAND).lexically_normal().string();
}

std::string cameraProgramPath()
{
    return std::filesystem::path(defaultBundlePath()).replace_filename("pavo-camera").string();
}

}  // namespace pavo::tools
