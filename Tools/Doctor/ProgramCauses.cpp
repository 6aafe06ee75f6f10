// Programs that come to cameras by other ways.

#include "Tools/Doctor/Cause.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace pavo::tools {
namespace {

Finding checkBridge(Examination& examination)
{
    if (examination.system().isInstalled("pw-v4l2")) return Finding::fine("pw-v4l2 is installed.");
    return Finding::hint(
        "pw-v4l2 is not installed, so programs that know only V4L2, such as ffmpeg, do not see the camera.",
        "sudo apt install pipewire-v4l2, and start them with it: pw-v4l2 ffmpeg -f v4l2 -i /dev/video0 …");
}

Finding checkSameName(Examination& examination)
{
    constexpr const char* kDevices = "/sys/class/video4linux/";
    std::string label = examination.status() ? examination.status().value().nodeLabel : "";
    if (label.empty()) label = "Pavo Camera";
    for (const auto& device : examination.system().list(kDevices)) {
        const auto name = examination.system().readFile(kDevices + device + "/name");
        if (name && name->substr(0, name->find('\n')) == label)
            return Finding::hint("The device /dev/" + device + " is named \"" + label +
                                     "\", too, and is not this camera: lists have the name twice.",
                                 "sudo modprobe -r v4l2loopback, or load it with another card_label");
    }
    return Finding::fine("No other device has the camera's name.");
}

Finding checkGStreamer(Examination& examination)
{
    const System& system = examination.system();
    if (!system.isInstalled("gst-launch-1.0")) return Finding::fine("GStreamer is not installed.");
    std::vector<std::string> folders = {"/usr/lib64/gstreamer-1.0", "/usr/lib/gstreamer-1.0",
                                        "/usr/local/lib/gstreamer-1.0", "/usr/local/lib64/gstreamer-1.0"};
    for (const char* root : {"/usr/lib/", "/usr/local/lib/"})
        for (const auto& name : system.list(root))
            if (name.find("-linux-") != std::string::npos) folders.push_back(root + name + "/gstreamer-1.0");
    for (const char* variable :
         {"GST_PLUGIN_PATH", "GST_PLUGIN_PATH_1_0", "GST_PLUGIN_SYSTEM_PATH", "GST_PLUGIN_SYSTEM_PATH_1_0"}) {
        std::istringstream list(examination.variable(variable).value_or(""));
        for (std::string folder; std::getline(list, folder, ':');)
            folders.push_back(folder);
    }
    const bool isThere = std::any_of(folders.begin(), folders.end(), [&system](const std::string& folder) {
        return system.statusOf(folder + "/libgstpipewire.so").has_value();
    });
    if (isThere) return Finding::fine("GStreamer has its PipeWire elements.");
    return Finding::hint("GStreamer is installed without pipewiresrc, so its programs do not see the camera.",
                         "sudo apt install gstreamer1.0-pipewire");
}

constexpr std::array<Cause, 3> kCauses = {{
    {"no-v4l2-bridge", "Programs that know only V4L2 do not see the camera", "pw-v4l2 is not installed",
     "Install pipewire-v4l2, and start the program with `pw-v4l2`", checkBridge},
    {"same-name-device", "Lists have the camera twice, one of them black",
     "A V4L2 device, as v4l2loopback makes them, has the camera's name", "Remove it, or name it otherwise",
     checkSameName},
    {"no-gstreamer-source", "GStreamer knows no `pipewiresrc`",
     "GStreamer's PipeWire plugin is not installed", "Install gstreamer1.0-pipewire", checkGStreamer},
}};

}  // namespace

std::span<const Cause> programCauses()
{
    return kCauses;
}

}  // namespace pavo::tools
