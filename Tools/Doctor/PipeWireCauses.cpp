// PipeWire, between the camera and its clients.

#include "Tools/Doctor/Cause.h"

#include <algorithm>
#include <array>
#include <set>

namespace pavo::tools {
namespace {

using Objects = std::vector<PipeWireGraph::Object>;

// The camera serves its clients itself.
bool isEmbedded(Examination& examination)
{
    return !examination.pipeWire(Examination::kEmbedded).graph.cameras(Examination::kNodeName).empty();
}

Objects camerasIn(Examination& examination, const std::string& remote)
{
    return examination.pipeWire(remote).graph.cameras(Examination::kNodeName);
}

Finding checkDaemon(Examination& examination)
{
    const auto& daemon = examination.pipeWire(Examination::kDaemon);
    const std::string start =
        "systemctl --user start pipewire wireplumber; or, without systemd, pipewire & wireplumber &";
    if (daemon.isThere()) return Finding::fine("PipeWire runs, version " + daemon.graph.version + ".");
    if (daemon.kind == PipeWireAnswer::Kind::silent)
        return Finding::problem("The PipeWire daemon takes connections but tells nothing: " + daemon.problem +
                                    ".",
                                "systemctl --user restart pipewire wireplumber");
    if (isEmbedded(examination)) return Finding::fine("The camera does without a PipeWire daemon.");
    const std::string folder = examination.runtimeFolder();
    return Finding::problem("No PipeWire daemon runs: " +
                                (folder.empty()
                                     ? "there is no runtime folder that it could be found in"
                                     : folder + "/" + Examination::kDaemon + ": " + daemon.problem) +
                                ".",
                            start);
}

Finding checkEmbedded(Examination& examination)
{
    if (!isEmbedded(examination)) return Finding::fine("The camera does not serve a PipeWire of its own.");
    if (examination.pipeWire(Examination::kDaemon).isThere())
        return Finding::fine("There is a PipeWire daemon, too.");
    if (examination.clientRemote() == Examination::kEmbedded)
        return Finding::fine("PIPEWIRE_REMOTE leads to the camera's own PipeWire.");
    return Finding::problem(
        "No PipeWire daemon runs, so the camera serves one of its own, named pavo-0, which "
        "programs do not look for.",
        "export PIPEWIRE_REMOTE=pavo-0 for each program; or start PipeWire, then the camera again");
}

// A camera with a PipeWire of its own, and a daemon without one.
bool isBesideDaemon(Examination& examination)
{
    return isEmbedded(examination) && examination.pipeWire(Examination::kDaemon).isThere() &&
           camerasIn(examination, Examination::kDaemon).empty();
}

bool isEmbeddedByWish(Examination& examination)
{
    const auto cameras = examination.camerasHere();
    return std::any_of(cameras.begin(), cameras.end(), [](const auto& camera) {
        const auto setting = camera.environment.find("PAVO_PIPEWIRE");
        return setting != camera.environment.end() && setting->second == "embedded";
    });
}

Finding checkDaemonCameLater(Examination& examination)
{
    const auto isInOrder = Finding::fine("No camera serves a PipeWire of its own beside a daemon.");
    if (!isBesideDaemon(examination)) return isInOrder;
    if (isEmbeddedByWish(examination))
        return Finding::problem("The camera was started with PAVO_PIPEWIRE=embedded, so the PipeWire daemon, "
                                "which runs, does not have it.",
                                "start the camera without PAVO_PIPEWIRE");
    // It moves by itself, but not away from clients.
    const auto& status = examination.status();
    if (status && !status.value().clients.empty()) {
        const auto& client = status.value().clients.front().process;
        return Finding::problem(
            "A PipeWire daemon has come, and the camera moves there when its clients in pavo-0 "
            "have gone; process " +
                std::to_string(client.pid) + " (" + client.program + ") is one.",
            "end these clients, or " + restartOf(examination));
    }
    examination.system().pause();
    examination.pipeWireAgain(Examination::kDaemon);
    examination.pipeWireAgain(Examination::kEmbedded);
    if (!isBesideDaemon(examination)) return isInOrder;
    return Finding::problem(
        "The camera serves a PipeWire of its own, pavo-0, and has not moved to the PipeWire daemon, "
        "which runs.",
        restartOf(examination));
}

Finding checkRemote(Examination& examination)
{
    const auto remote = examination.variable("PIPEWIRE_REMOTE");
    if (!remote) return Finding::fine("PIPEWIRE_REMOTE is not set.");
    if (remote->starts_with('[')) return Finding::unknown("PIPEWIRE_REMOTE is a list: " + *remote + ".");
    if (!camerasIn(examination, *remote).empty())
        return Finding::fine("PIPEWIRE_REMOTE leads to the camera.");
    for (const char* other : {Examination::kDaemon, Examination::kEmbedded})
        if (*remote != other && !camerasIn(examination, other).empty())
            return Finding::problem(
                "PIPEWIRE_REMOTE sends programs to " + *remote + ", but the camera is in " + other + ".",
                std::string("unset PIPEWIRE_REMOTE, or: export PIPEWIRE_REMOTE=") + other);
    return Finding::fine("No other PipeWire has the camera.");
}

Finding checkNode(Examination& examination)
{
    const auto cameras = examination.camerasHere();
    if (cameras.empty()) return Finding::fine("No camera runs that could be missing.");
    const auto& daemon = examination.pipeWire(Examination::kDaemon);
    if (isEmbedded(examination)) return Finding::fine("The camera is in its own PipeWire.");
    if (!daemon.isThere()) return Finding::unknown("PipeWire cannot be asked: " + daemon.problem + ".");
    if (!daemon.graph.cameras(Examination::kNodeName).empty())
        return Finding::fine("PipeWire has the camera.");
    // It may just be on its way.
    examination.system().pause();
    if (!examination.pipeWireAgain(Examination::kDaemon).graph.cameras(Examination::kNodeName).empty())
        return Finding::fine("PipeWire has the camera.");
    return Finding::problem(namesOf(cameras) + " is a camera, but PipeWire has no node pavo-camera.",
                            restartOf(examination));
}

// Which links clients with cameras.
bool isSessionManager(const PipeWireGraph::Object& object)
{
    const std::string name = object.property("application.name");
    const std::string program = object.property("application.process.binary");
    return object.type == "Client" &&
           (name.starts_with("WirePlumber") || program == "wireplumber" || name == "pipewire-media-session" ||
            program == "pipewire-media-session");
}

Finding checkSessionManager(Examination& examination)
{
    const auto& daemon = examination.pipeWire(Examination::kDaemon);
    if (daemon.kind == PipeWireAnswer::Kind::absent)
        return Finding::fine("No PipeWire daemon runs that would need a session manager.");
    if (!daemon.isThere()) return Finding::unknown("PipeWire cannot be asked: " + daemon.problem + ".");
    if (std::any_of(daemon.graph.objects.begin(), daemon.graph.objects.end(), isSessionManager))
        return Finding::fine("A session manager links clients.");
    return Finding::problem(
        "PipeWire runs without a session manager, so no client is linked with any camera.",
        "systemctl --user start wireplumber (package wireplumber)");
}

// Nodes that wait for the camera's pictures and are linked with nothing.
std::set<std::uint32_t> unlinkedClients(const PipeWireGraph& graph)
{
    std::set<std::uint32_t> nodes;
    std::set<std::string> names = {Examination::kNodeName};
    for (const auto& camera : graph.cameras(Examination::kNodeName)) {
        names.insert(std::to_string(camera.id));
        names.insert(camera.property("object.serial"));
    }
    for (const auto& object : graph.objects) {
        if (object.type != "Node" || graph.isLinked(object.id)) continue;
        const bool wantsUs = names.contains(object.property("target.object")) ||
                             names.contains(object.property("node.target"));
        const std::string media = object.property("media.class");
        if (wantsUs && media.starts_with("Stream/Input")) nodes.insert(object.id);
    }
    return nodes;
}

Finding checkLinks(Examination& examination)
{
    const std::string remote = examination.clientRemote();
    auto before = unlinkedClients(examination.pipeWire(remote).graph);
    if (before.empty()) return Finding::fine("No client waits to be linked.");
    // A client that has just come is linked in a moment.
    examination.system().pause();
    const PipeWireGraph& graph = examination.pipeWireAgain(remote).graph;
    for (const std::uint32_t node : unlinkedClients(graph)) {
        if (!before.contains(node)) continue;
        const auto found = std::find_if(graph.objects.begin(), graph.objects.end(),
                                        [node](const auto& object) { return object.id == node; });
        return Finding::problem("The client " + found->property("node.name") + " (object " +
                                    std::to_string(node) + ") asks for the camera but is not linked with it.",
                                "systemctl --user restart wireplumber, then start the client again; if that "
                                "does not help, the client may take neither YUY2 nor NV12");
    }
    return Finding::fine("Every client is linked.");
}

Finding checkVersions(Examination& examination)
{
    const auto& daemon = examination.pipeWire(Examination::kDaemon);
    const std::string library = examination.system().pipeWireLibraryVersion();
    if (!daemon.isThere()) return Finding::fine("No PipeWire daemon runs that could be older.");
    if (daemon.graph.version == library) return Finding::fine("The daemon is as new as PipeWire's library.");
    return Finding::hint("The PipeWire daemon is of version " + daemon.graph.version +
                             ", and its library of " + library +
                             ": it has been updated and not started again.",
                         "systemctl --user restart pipewire wireplumber, then " + restartOf(examination));
}

constexpr std::array<Cause, 8> kCauses = {{
    {"no-pipewire", "No program sees any camera", "No PipeWire daemon runs, or it does not answer",
     "`systemctl --user start pipewire wireplumber`", checkDaemon},
    {"embedded-only", "No program sees the camera, which runs",
     "Without a PipeWire daemon the camera is in a PipeWire of its own",
     "Start clients with PIPEWIRE_REMOTE=pavo-0", checkEmbedded},
    {"daemon-came-later", "No program sees the camera, which runs",
     "The camera is in a PipeWire of its own, although a daemon runs: it was told to, or has clients there",
     "End these clients, or start the camera again, without PAVO_PIPEWIRE", checkDaemonCameLater},
    {"remote-elsewhere", "Some programs do not see the camera",
     "PIPEWIRE_REMOTE leads to a PipeWire without the camera", "Unset it, or set it right", checkRemote},
    {"node-missing", "No program sees the camera, which runs", "PipeWire does not have the camera's node",
     "Start the camera again", checkNode},
    {"no-session-manager", "The camera is listed, but no picture comes",
     "Nothing links clients with cameras: WirePlumber does not run", "`systemctl --user start wireplumber`",
     checkSessionManager},
    {"client-not-linked", "One program gets no picture",
     "A client asks for the camera and is not linked with it",
     "Start WirePlumber and the client again; the client has to take YUY2 or NV12", checkLinks},
    {"pipewire-outdated", "Programs fail since an update",
     "The PipeWire daemon is another version than its library on this computer",
     "`systemctl --user restart pipewire wireplumber`", checkVersions},
}};

}  // namespace

std::span<const Cause> pipeWireCauses()
{
    return kCauses;
}

}  // namespace pavo::tools
