// The camera's own process.

#include "Tools/Doctor/Cause.h"

#include <algorithm>
#include <array>

namespace pavo::tools {
namespace {

std::string bundleOf(Examination& examination)
{
    for (const auto& camera : examination.camerasHere()) {
        const auto& arguments = camera.process.arguments;
        const auto option = std::find(arguments.begin(), arguments.end(), "--bundle");
        if (option != arguments.end() && option + 1 != arguments.end()) return *(option + 1);
    }
    return examination.system().bundlePath();
}

Finding checkBundle(Examination& examination)
{
    constexpr std::array<const char*, 5> kFiles = {
        "Info.plist", "Linux/CMIOExtensionSupport", "Frameworks/libPavoPlatform.so",
        "Frameworks/PavoLoggingSupport.framework/PavoLoggingSupport", "Resources/configure-pavo-full.png"};
    constexpr std::string_view kPicture = ".png";
    const std::string contents = bundleOf(examination) + "/Contents/";
    for (const std::string_view file : kFiles) {
        const std::string path = contents + std::string(file);
        const auto content = examination.system().readFile(path);
        const std::string remedy = "install the package again: sudo apt reinstall pavo-camera";
        if (!content || content->empty())
            return Finding::problem("The camera's bundle lacks " + path + ", or it is empty or unreadable.",
                                    remedy);
        if (file.ends_with(kPicture) && !content->starts_with("\x89PNG\r\n\x1a\n"))
            return Finding::problem("The placeholder picture " + path + " is no PNG.", remedy);
    }
    return Finding::fine("The camera's bundle is complete.");
}

Finding checkRunning(Examination& examination)
{
    if (const auto cameras = examination.camerasHere(); !cameras.empty())
        return Finding::fine(namesOf(cameras) + (cameras.size() == 1 ? " is" : " are") + " the camera.");
    if (!examination.camerasElsewhere().empty()) return Finding::fine("A camera runs, elsewhere.");
    if (examination.status())
        return Finding::fine("The camera answers: process " +
                             std::to_string(examination.status().value().pid) + ".");
    const auto& service = examination.service();
    const bool hasUnit = service && service.value() && !service.value()->fileState.empty();
    return Finding::problem("No camera of this user runs.",
                            hasUnit ? "systemctl --user enable --now pavo-camera" : "pavo camera");
}

Finding checkNamesFolder(Examination& examination)
{
    const auto elsewhere = examination.camerasElsewhere();
    if (elsewhere.empty() || !examination.camerasHere().empty())
        return Finding::fine("Names are kept in " + examination.nameFolder() + ".");
    const auto& there = elsewhere.front();
    return Finding::problem(
        namesOf({there}) + " is a camera whose names are in " + there.nameFolder +
            ", but here they are looked for in " + examination.nameFolder() + ".",
        examination.variable("PAVO_BOOTSTRAP_DIR")
            ? "unset PAVO_BOOTSTRAP_DIR"
            : "start camera and producers with the same PAVO_BOOTSTRAP_DIR and XDG_RUNTIME_DIR");
}

Finding checkServiceFailed(Examination& examination)
{
    const auto& service = examination.service();
    if (!service) return Finding::unknown("systemd cannot be asked: " + service.problem().text + ".");
    if (!service.value()) return Finding::fine("No systemd looks after the session.");
    const auto& [fileState, active, sub] = *service.value();
    if (active == "failed" || sub == "auto-restart")
        return Finding::problem("The service pavo-camera has failed (" + active + ", " + sub + ").",
                                "read why, then start it: journalctl --user -u pavo-camera -n 50; systemctl "
                                "--user reset-failed pavo-camera; systemctl --user start pavo-camera");
    return Finding::fine("The service pavo-camera has not failed.");
}

Finding checkServiceDisabled(Examination& examination)
{
    const auto& service = examination.service();
    if (!service) return Finding::unknown("systemd cannot be asked: " + service.problem().text + ".");
    if (!service.value()) return Finding::fine("No systemd looks after the session.");
    const std::string& state = service.value()->fileState;
    if (state != "disabled" && state != "masked") return Finding::fine("The service is not switched off.");
    if (!examination.camerasHere().empty()) return Finding::fine("The camera runs without the service.");
    return Finding::hint(
        "The service pavo-camera is installed but " + state + ", so no camera starts at log-in.",
        state == "masked" ? "systemctl --user unmask pavo-camera; systemctl --user enable --now pavo-camera"
                          : "systemctl --user enable --now pavo-camera");
}

Finding checkHangs(Examination& examination)
{
    const auto cameras = examination.camerasHere();
    for (const auto& camera : cameras)
        if (camera.process.state == 'T' || camera.process.state == 't')
            return Finding::problem(namesOf({camera}) +
                                        ", the camera, has been stopped by a signal or a debugger.",
                                    "kill -CONT " + std::to_string(camera.process.pid));
    if (cameras.empty()) return Finding::fine("No camera runs that could hang.");
    if (!examination.status()) {
        examination.system().pause();
        examination.statusAgain();
    }
    if (!examination.status())
        return Finding::problem(namesOf(cameras) + " is a camera but does not say how it is: " +
                                    examination.status().problem().text + ".",
                                restartOf(examination));
    return Finding::fine("The camera answers.");
}

Finding checkTwoCameras(Examination& examination)
{
    const auto cameras = examination.camerasHere();
    if (cameras.size() > 1)
        return Finding::problem(namesOf(cameras) +
                                    " are all cameras here: producers reach one, clients may see another.",
                                "end all but one: kill " + std::to_string(cameras.back().process.pid));
    const auto& answer = examination.pipeWire(examination.clientRemote());
    if (answer.kind == PipeWireAnswer::Kind::silent)
        return Finding::unknown("PipeWire cannot be asked: " + answer.problem + ".");
    const auto nodes = answer.graph.cameras(Examination::kNodeName);
    if (nodes.size() > 1)
        return Finding::problem("PipeWire has " + std::to_string(nodes.size()) +
                                    " cameras named pavo-camera (objects " + std::to_string(nodes[0].id) +
                                    " and " + std::to_string(nodes[1].id) +
                                    "): clients may see the wrong one.",
                                "end all cameras but one: pgrep -af 'pavo camera'");
    return Finding::fine("There are not two cameras.");
}

Finding checkName(Examination& examination)
{
    const System& system = examination.system();
    const auto cameras = examination.camerasHere();
    if (cameras.empty()) return Finding::fine("No camera runs that could be cut off.");
    const std::string& folder = examination.nameFolder();
    const std::string name = examination.cameraName();
    const auto status = system.statusOf(folder);
    const bool isOurs = status && (status->owner == system.user() || status->owner == 0);
    if (status && (!isOurs || (status->permissions & 022) != 0))
        return Finding::problem("Others may change the folder of names " + folder +
                                    ", so it is not believed.",
                                "chmod 700 " + folder + ", then " + restartOf(examination));
    const auto link = system.readLink(name);
    if (!link)
        return Finding::problem(namesOf(cameras) + ", the camera, has no name " + name +
                                    " for producers to find.",
                                restartOf(examination));
    const bool leadsToOne = std::any_of(cameras.begin(), cameras.end(), [&link](const auto& camera) {
        return link->find("process-" + std::to_string(camera.process.pid) + "/") != std::string::npos;
    });
    if (!leadsToOne || !system.answers(name))
        return Finding::problem("The name " + name + " leads to " + *link + ", which is not the camera (" +
                                    namesOf(cameras) + ") or does not answer.",
                                restartOf(examination));
    return Finding::fine("Producers find the camera.");
}

Finding checkOutdated(Examination& examination)
{
    const std::string remedy = restartOf(examination);
    for (const auto& camera : examination.camerasHere())
        if (camera.process.isReplaced)
            return Finding::hint(namesOf({camera}) +
                                     ", the camera, still runs a program that has been replaced since.",
                                 remedy);
    const std::string version = examination.system().version();
    if (examination.status() && examination.status().value().version != version)
        return Finding::hint("The camera is of version " + examination.status().value().version +
                                 ", and this command of " + version + ".",
                             remedy);
    return Finding::fine(examination.camerasHere().empty() ? "No camera runs that could be out of date."
                                                           : "The camera is as new as its program.");
}

Finding checkDescriptors(Examination& examination)
{
    for (const auto& camera : examination.camerasHere()) {
        const auto use = examination.system().descriptorsOf(camera.process.pid);
        if (!use) return Finding::unknown("What " + namesOf({camera}) + " has open cannot be read.");
        if (use->open >= use->limit - use->limit / 10)
            return Finding::problem(
                namesOf({camera}) + ", the camera, has " + std::to_string(use->open) + " of " +
                    std::to_string(use->limit) + " file descriptors open: the next client or frame may fail.",
                "systemctl --user edit pavo-camera, with LimitNOFILE=65536 under [Service]; or "
                "ulimit -n 65536 before pavo camera");
    }
    return Finding::fine(examination.camerasHere().empty()
                             ? "No camera runs that could lack file descriptors."
                             : "The camera has file descriptors to spare.");
}

constexpr std::array<Cause, 10> kCauses = {{
    {"bundle-incomplete", "The camera does not start, or has no placeholder picture",
     "A file of the camera's bundle is missing or damaged", "Install the package again", checkBundle},
    {"camera-not-running", "No list of cameras has it", "No camera of this user runs",
     "`systemctl --user enable --now pavo-camera`, or `pavo camera`", checkRunning},
    {"names-elsewhere", "Producers wait for a camera that runs",
     "PAVO_BOOTSTRAP_DIR or XDG_RUNTIME_DIR is another one here than where the camera runs",
     "Give both the same environment", checkNamesFolder},
    {"service-failed", "No list of cameras has it", "The service has failed, or fails again and again",
     "`journalctl --user -u pavo-camera` says why", checkServiceFailed},
    {"service-disabled", "The camera is gone after the next log-in",
     "The service is installed but not enabled", "`systemctl --user enable --now pavo-camera`",
     checkServiceDisabled},
    {"camera-hangs", "The camera is listed, but its picture stands still",
     "The camera's process is stopped or does not answer", "`kill -CONT`, or start it again", checkHangs},
    {"two-cameras", "The placeholder shows although a producer sends", "Two cameras run side by side",
     "End all but one", checkTwoCameras},
    {"producers-cut-off", "Producers wait for a camera that runs",
     "The camera's name in its folder is missing, is another's, or is not to be trusted",
     "Start the camera again", checkName},
    {"camera-outdated", "What an update promised is not there",
     "The camera still runs the program as it was before an update", "Start the camera again", checkOutdated},
    {"descriptors-exhausted", "New clients do not get a picture",
     "The camera has nearly as many files open as it may", "Raise LimitNOFILE", checkDescriptors},
}};

}  // namespace

std::span<const Cause> cameraCauses()
{
    return kCauses;
}

}  // namespace pavo::tools
