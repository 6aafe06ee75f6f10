#include "Tools/SessionManagerConfig.h"

#include <filesystem>
#include <fstream>
#include <utility>

namespace pavo::tools {

bool writeSessionManagerConfig(const std::string& configHome)
{
    // Of WirePlumber 0.4, after the files that make the monitors (50-…), and before the one that starts them
    // (90-…); and of 0.5, which reads no Lua. Neither reads the other's.
    constexpr std::pair<const char*, const char*> kFiles[] = {
        {"main.lua.d/80-no-hardware.lua",
         "alsa_monitor.enabled = false\nv4l2_monitor.enabled = false\nlibcamera_monitor.enabled = false\n"},
        {"bluetooth.lua.d/80-no-hardware.lua", "bluez_monitor.enabled = false\n"},
        {"wireplumber.conf.d/80-no-hardware.conf",
         "wireplumber.profiles = {\n  main = {\n    hardware.audio = disabled\n"
         "    hardware.bluetooth = disabled\n    hardware.video-capture = disabled\n  }\n}\n"}};
    for (const auto& [name, text] : kFiles) {
        const auto path = std::filesystem::path(configHome) / "wireplumber" / name;
        std::error_code error;
        std::filesystem::create_directories(path.parent_path(), error);
        std::ofstream file(path);
        file << text;
        if (error || !file.flush()) return false;
    }
    return true;
}

}  // namespace pavo::tools
