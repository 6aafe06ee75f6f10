// Browsers, and the portal through which they get cameras.

#include "Tools/Doctor/Cause.h"

#include <algorithm>
#include <array>
#include <set>

namespace pavo::tools {
namespace {

constexpr const char* kPortalRestart =
    "systemctl --user restart wireplumber xdg-desktop-portal, then start the browser again";

Finding checkPortal(Examination& examination)
{
    const auto& portal = examination.portal();
    if (!portal) return Finding::unknown("The portal cannot be asked: " + portal.problem().text + ".");
    if (!portal.value().isInstalled)
        return Finding::hint(
            "There is no xdg-desktop-portal, so browsers and Flatpaks see no PipeWire camera.",
            "sudo apt install xdg-desktop-portal, and a backend for the desktop such as "
            "xdg-desktop-portal-gtk");
    return Finding::fine(portal.value().pid == 0
                             ? "The portal starts when a program asks for it."
                             : "The portal runs: process " + std::to_string(portal.value().pid) + ".");
}

Finding checkPortalCameras(Examination& examination)
{
    const auto& portal = examination.portal();
    if (!portal) return Finding::unknown("The portal cannot be asked: " + portal.problem().text + ".");
    if (portal.value().pid == 0) return Finding::fine("The portal does not run.");
    if (portal.value().hasCameras) return Finding::fine("The portal offers cameras.");
    return Finding::problem("The portal (process " + std::to_string(portal.value().pid) +
                                ") offers no cameras: it has no backend that could ask for permission.",
                            "sudo apt install xdg-desktop-portal-gtk (or the desktop's own backend); "
                            "systemctl --user restart xdg-desktop-portal");
}

Finding checkPortalSight(Examination& examination)
{
    const auto& portal = examination.portal();
    if (!portal) return Finding::unknown("The portal cannot be asked: " + portal.problem().text + ".");
    if (portal.value().pid == 0 || !portal.value().hasCameras)
        return Finding::fine("The portal does not offer cameras.");
    const auto& daemon = examination.pipeWire(Examination::kDaemon);
    if (daemon.graph.cameras(Examination::kNodeName).empty())
        return Finding::fine("PipeWire has no camera that the portal could miss.");
    if (portal.value().seesCamera) return Finding::fine("The portal sees a camera.");
    return Finding::problem("PipeWire has the camera, but the portal (process " +
                                std::to_string(portal.value().pid) +
                                ") says that there is none: it has lost PipeWire, or may not see cameras.",
                            kPortalRestart);
}

Finding checkPermission(Examination& examination)
{
    const auto& portal = examination.portal();
    if (portal && portal.value().pid == 0)
        return Finding::fine("The portal does not run, so it forbids nothing.");
    const auto permissions = examination.system().cameraPermissions();
    if (!permissions)
        return Finding::unknown("Permissions cannot be read: " + permissions.problem().text + ".");
    for (const auto& [application, permission] : permissions.value()) {
        if (permission != "no") continue;
        const bool isHost = application.empty();
        const std::string remedy =
            isHost ? "gdbus call --session --dest org.freedesktop.impl.portal.PermissionStore --object-path "
                     "/org/freedesktop/impl/portal/PermissionStore --method "
                     "org.freedesktop.impl.portal.PermissionStore.DeletePermission devices camera ''"
                   : "flatpak permission-remove devices camera " + application;
        return Finding::problem("The portal refuses cameras to " +
                                    (isHost ? "every program that is no Flatpak" : application) +
                                    ", because somebody once answered no.",
                                remedy);
    }
    return Finding::fine("Nobody has forbidden cameras.");
}

bool isOneOf(const Process& process, const std::set<std::string>& programs, uid_t user)
{
    return process.owner == user && programs.contains(process.program);
}

std::string commandLine(const Process& process)
{
    std::string line;
    for (const auto& argument : process.arguments)
        line += argument + " ";
    return line;
}

Finding checkChromium(Examination& examination)
{
    static const std::set<std::string> programs = {"chromium", "chrome",      "brave",
                                                   "msedge",   "vivaldi-bin", "opera"};
    std::optional<Process> browser;
    for (const Process& process : examination.processes()) {
        if (!isOneOf(process, programs, examination.system().user())) continue;
        const std::string line = commandLine(process);
        // Switched on in chrome://flags, it is on the command line of the browser's children.
        const auto enabled = line.find("--enable-features=");
        if (enabled != std::string::npos &&
            line.substr(enabled, line.find(' ', enabled) - enabled).find("WebRtcPipeWireCamera") !=
                std::string::npos)
            return Finding::fine("The browser asks PipeWire for cameras.");
        if (line.find("--type=") == std::string::npos) browser = process;
    }
    if (!browser) return Finding::fine("No Chromium runs.");
    return Finding::hint(
        browser->program + " (process " + std::to_string(browser->pid) +
            ") was started without the feature WebRtcPipeWireCamera, so it sees no PipeWire camera.",
        "start it with --enable-features=WebRtcPipeWireCamera, or switch on "
        "chrome://flags/#enable-webrtc-pipewire-camera");
}

// The profile that a running Firefox has locked.
std::optional<std::string> profileOf(const Process& firefox, const Examination& examination)
{
    const System& system = examination.system();
    const std::string home = examination.variable("HOME").value_or("");
    std::vector<std::string> profiles;
    for (const auto& [option, value] : {std::pair("-profile", 1), std::pair("--profile", 1)}) {
        const auto found = std::find(firefox.arguments.begin(), firefox.arguments.end(), option);
        if (firefox.arguments.end() - found > value) profiles.push_back(*(found + value));
    }
    for (const char* folder :
         {"/.mozilla/firefox", "/.config/mozilla/firefox", "/snap/firefox/common/.mozilla/firefox"})
        for (const auto& name : system.list(home + folder))
            profiles.push_back(home + folder + "/" + name);
    for (const auto& profile : profiles)
        if (const auto lock = system.readLink(profile + "/lock");
            lock && lock->ends_with("+" + std::to_string(firefox.pid)))
            return profile;
    return std::nullopt;
}

Finding judgeProfile(const Process& firefox, const std::string& profile, const System& system)
{
    const auto settings = system.readFile(profile + "/prefs.js");
    if (!settings) return Finding::unknown("The settings in " + profile + " cannot be read.");
    const std::string name = "user_pref(\"media.webrtc.camera.allow-pipewire\", ";
    if (settings->find(name + "true") != std::string::npos)
        return Finding::fine("Firefox asks PipeWire for cameras.");
    const auto release = system.readFile("/etc/os-release");
    const bool isDebian = release && ("\n" + *release).find("\nID=debian") != std::string::npos;
    if (settings->find(name + "false") == std::string::npos && !isDebian)
        return Finding::unknown(
            "Whether Firefox asks PipeWire for cameras by default depends on who built it, and " + profile +
            " does not say otherwise.");
    return Finding::hint(
        "Firefox (process " + std::to_string(firefox.pid) +
            ") does not ask PipeWire for cameras: its profile " + profile +
            " does not set media.webrtc.camera.allow-pipewire.",
        "set media.webrtc.camera.allow-pipewire to true in about:config, and start Firefox again");
}

Finding checkFirefox(Examination& examination)
{
    static const std::set<std::string> programs = {"firefox", "firefox-esr", "firefox-bin"};
    bool isRunning = false;
    for (const Process& process : examination.processes()) {
        if (!isOneOf(process, programs, examination.system().user())) continue;
        isRunning = true;
        if (const auto profile = profileOf(process, examination))
            return judgeProfile(process, *profile, examination.system());
    }
    if (isRunning) return Finding::unknown("Firefox runs, but its profile was not found.");
    return Finding::fine("No Firefox runs.");
}

constexpr std::array<Cause, 6> kCauses = {{
    {"no-portal", "Browsers do not see the camera, other programs do", "xdg-desktop-portal is not installed",
     "Install it, and a backend for the desktop", checkPortal},
    {"portal-without-cameras", "Browsers do not see the camera, other programs do",
     "The portal runs, but without a backend that could ask for permission it offers no cameras",
     "Install the desktop's portal backend", checkPortalCameras},
    {"portal-blind", "Browsers do not see the camera, other programs do",
     "The portal says that there is no camera, though PipeWire has it",
     "`systemctl --user restart wireplumber xdg-desktop-portal`", checkPortalSight},
    {"camera-forbidden", "One browser or Flatpak does not see the camera",
     "The permission store says no to cameras for it",
     "`flatpak permission-remove devices camera` and the application", checkPermission},
    {"chromium-without-pipewire", "Chromium does not see the camera",
     "It runs without the feature WebRtcPipeWireCamera",
     "Switch it on in chrome://flags/#enable-webrtc-pipewire-camera", checkChromium},
    {"firefox-without-pipewire", "Firefox does not see the camera",
     "Its setting media.webrtc.camera.allow-pipewire is not true", "Set it in about:config", checkFirefox},
}};

}  // namespace

std::span<const Cause> browserCauses()
{
    return kCauses;
}

}  // namespace pavo::tools
