#include "Tools/SessionManagerConfig.h"

#include <filesystem>
#include <fstream>
#include <utility>

namespace pavo::tools {

bool writeSessionManagerConfig(const std::string& configHome)
{
    // After the files that make the monitors (50-…), and before the one that starts them (90-…).
    constexpr const char* kFileName = "80-no-hardware.lua";
    constexpr std::pair<const char*, const char*> kFiles[] = {
        {"main.lua.d",
         "alsa_monitor.enabled = false\nv4l2_monitor.enabled = false\nlibcamera_monitor.enabled = false\n"},
        {"bluetooth.lua.d", "bluez_monitor.enabled = false\n"}};
    for (const auto& [folder, text] : kFiles) {
        const auto path = std::filesystem::path(configHome) / "wireplumber" / folder;
        std::error_code error;
        std::filesystem::create_directories(path, error);
        std::ofstream file(path / kFileName);
        file << text;
        if (error || !file.flush()) return false;
    }
    return true;
}

}  // namespace pavo::tools
