// The user's session: where everything is looked for.

#include "Tools/Doctor/Cause.h"

#include <array>

namespace pavo::tools {
namespace {

Finding checkRuntimeFolder(Examination& examination)
{
    const auto folder = examination.variable("XDG_RUNTIME_DIR");
    const std::string remedy =
        "log in properly (by ssh, on a console or a desktop), or: export XDG_RUNTIME_DIR=/run/user/" +
        std::to_string(examination.system().user());
    if (!folder)
        return Finding::problem(
            "XDG_RUNTIME_DIR is not set, so no program finds the PipeWire of the session.", remedy);
    const auto status = examination.system().statusOf(*folder);
    if (!folder->starts_with('/') || !status || status->kind != FileStatus::Kind::folder)
        return Finding::problem("XDG_RUNTIME_DIR is " + *folder + ", which is no folder.", remedy);
    return Finding::fine("The runtime folder is " + *folder + ".");
}

Finding checkRuntimeOwner(Examination& examination)
{
    const System& system = examination.system();
    const auto folder = examination.variable("XDG_RUNTIME_DIR");
    const auto status = folder ? system.statusOf(*folder) : std::nullopt;
    if (!status) return Finding::unknown("There is no runtime folder to look at.");
    const std::string user = std::to_string(system.user());
    if (status->owner != system.user())
        return Finding::problem("The runtime folder " + *folder + " belongs to user " +
                                    std::to_string(status->owner) + ", and this is user " + user +
                                    ": the camera keeps its names elsewhere, and PipeWire may refuse.",
                                "export XDG_RUNTIME_DIR=/run/user/" + user);
    if (!system.isWritable(*folder))
        return Finding::problem("The runtime folder " + *folder +
                                    " cannot be written to, so the camera cannot have a name there.",
                                "chmod 700 " + *folder);
    return Finding::fine("The runtime folder belongs to this user.");
}

Finding checkRoot(Examination& examination)
{
    const System& system = examination.system();
    if (system.user() == 0)
        for (const char* name : {"SUDO_UID", "PKEXEC_UID"})
            if (const auto user = examination.variable(name); user && *user != "0")
                return Finding::problem("This is root's session, begun by user " + *user + " (" + name +
                                            "): that user's programs do not see a camera of root's.",
                                        "run the camera, its producer and this command without sudo");
    const auto foreign = examination.foreignCameras();
    if (!foreign.empty() && examination.camerasHere().empty())
        return Finding::problem("The only camera that runs, process " + std::to_string(foreign.front().pid) +
                                    ", is that of user " + std::to_string(foreign.front().owner) +
                                    "; this is user " + std::to_string(system.user()) + ".",
                                "start a camera as this user: pavo camera");
    return Finding::fine("The session is the user's own.");
}

constexpr std::array<Cause, 3> kCauses = {{
    {"no-runtime-folder", "No program finds any camera or PipeWire",
     "XDG_RUNTIME_DIR is not set, or leads nowhere",
     "Log in properly, or set it to /run/user/ and the number of the user", checkRuntimeFolder},
    {"foreign-runtime-folder", "Permission denied; producers do not find the camera",
     "The runtime folder belongs to another user, as after `sudo` or `su`, or cannot be written to",
     "Set XDG_RUNTIME_DIR to the user's own folder", checkRuntimeOwner},
    {"other-user", "The camera runs, but the desktop's programs do not see it",
     "The camera, or this command, runs as root or as another user than the desktop's programs",
     "Run all of them as the same user, without `sudo`", checkRoot},
}};

}  // namespace

std::span<const Cause> sessionCauses()
{
    return kCauses;
}

}  // namespace pavo::tools
