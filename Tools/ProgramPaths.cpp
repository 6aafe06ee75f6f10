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
    return (std::filesystem::path(programPath()).parent_path() / "CMIOExtensionSupport.bundle").string();
}

}  // namespace pavo::tools
