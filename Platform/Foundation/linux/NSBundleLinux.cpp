#include "Platform/Foundation/NSBundle.h"

#include "Platform/Foundation/linux/PropertyList.h"

#include <dlfcn.h>
#include <link.h>

#include <filesystem>
#include <system_error>

namespace ns {

namespace {

namespace fs = std::filesystem;

bool isFile(const fs::path& path)
{
    std::error_code ignored;
    return fs::is_regular_file(path, ignored);
}

bool isFramework(const fs::path& folder)
{
    return folder.extension() == ".framework";
}

// Where a bundle keeps its Info.plist and its Resources folder.
fs::path infoFile(const fs::path& bundle)
{
    return isFramework(bundle) ? bundle / "Resources" / "Info.plist" : bundle / "Contents" / "Info.plist";
}

fs::path resourceFolder(const fs::path& bundle)
{
    std::error_code ignored;
    const bool hasContents = fs::is_directory(bundle / "Contents", ignored);
    return hasContents ? bundle / "Contents" / "Resources" : bundle / "Resources";
}

// The innermost bundle that the image lies in: <bundle>/Contents/…/image or <name>.framework/…/image.
std::optional<fs::path> bundleAround(const fs::path& image)
{
    for (auto folder = image.parent_path(); folder.has_relative_path(); folder = folder.parent_path()) {
        const bool isContents = folder.filename() == "Contents" && isFile(folder / "Info.plist");
        if (isContents) return folder.parent_path();
        if (isFramework(folder) && isFile(infoFile(folder))) return folder;
    }
    return std::nullopt;
}

fs::path programPath()
{
    std::error_code ignored;
    return fs::read_symlink("/proc/self/exe", ignored);
}

// The file of the image that holds `address`; none for the program itself, whose recorded name is whatever it
// was started as.
std::optional<fs::path> imageOf(const void* address)
{
    Dl_info info{};
    link_map* map = nullptr;
    if (!dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) || !map)
        return std::nullopt;
    if (!map->l_name || *map->l_name == '\0') return std::nullopt;
    std::error_code error;
    auto path = fs::canonical(map->l_name, error);
    return error ? std::nullopt : std::optional(std::move(path));
}

}  // namespace

Bundle Bundle::mainBundle()
{
    const auto program = programPath();
    return Bundle(bundleAround(program).value_or(program.parent_path()).string());
}

Bundle Bundle::bundleForClass(const Class& type)
{
    if (const auto image = imageOf(&type))
        if (const auto bundle = bundleAround(*image)) return Bundle(bundle->string());
    return mainBundle();
}

std::optional<std::string> Bundle::bundleIdentifier() const
{
    return propertyListString(infoFile(path_).string(), "CFBundleIdentifier");
}

std::optional<std::string> Bundle::pathForResource(std::string_view name, std::string_view extension) const
{
    auto path = resourceFolder(path_) / name;
    path += "." + std::string(extension);
    return isFile(path) ? std::optional(path.string()) : std::nullopt;
}

}  // namespace ns
