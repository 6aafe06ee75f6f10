// Each cause, made true on a computer on paper, and what resembles it without being one.

#include "Tests/Tools/Doctor/SystemDouble.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace pavo::test {
namespace {

using namespace pavo::tools;
using testing::HasSubstr;
using testing::IsEmpty;

// What the doctor complains of.
std::set<std::string> complaintsOf(const Diagnosis& diagnosis)
{
    std::set<std::string> ids;
    for (const auto& [cause, finding] : diagnosis.entries)
        if (finding.verdict == Verdict::problem || finding.verdict == Verdict::hint) ids.emplace(cause.id);
    return ids;
}

constexpr const char* kDaemon = Examination::kDaemon;
constexpr const char* kEmbedded = Examination::kEmbedded;

struct Case {
    std::string id;
    std::function<void(SystemDouble&)> happens;
    Verdict verdict;
    std::string text;                   // part of what is said
    std::string remedy;                 // part of what to do
    std::set<std::string> others = {};  // which follow from it
};

const std::vector<Case> kSessionCases = {
    {"no-runtime-folder", [](SystemDouble& system) { system.variables.erase("XDG_RUNTIME_DIR"); },
     Verdict::problem, "XDG_RUNTIME_DIR is not set", "export XDG_RUNTIME_DIR=/run/user/1000"},
    {"no-runtime-folder", [](SystemDouble& system) { system.variables["XDG_RUNTIME_DIR"] = "/gone"; },
     Verdict::problem, "XDG_RUNTIME_DIR is /gone, which is no folder", "XDG_RUNTIME_DIR=/run/user/1000"},
    {"foreign-runtime-folder",
     [](SystemDouble& system) {
         system.addFolder("/run/user/0", 0);
         system.variables["XDG_RUNTIME_DIR"] = "/run/user/0";
     },
     Verdict::problem, "/run/user/0 belongs to user 0, and this is user 1000",
     "XDG_RUNTIME_DIR=/run/user/1000"},
    {"foreign-runtime-folder", [](SystemDouble& system) { system.readOnly.insert("/run/user/1000"); },
     Verdict::problem, "/run/user/1000 cannot be written to", "chmod 700 /run/user/1000"},
    {"other-user",
     [](SystemDouble& system) {
         system.endCamera();
         system.addProcess(101, {"pavo", "camera"}, 1001);
     },
     Verdict::problem,
     "process 101, is that of user 1001; this is user 1000",
     "pavo camera",
     {"camera-not-running"}},
    {"other-user",
     [](SystemDouble& system) {
         system.userNumber = 0;
         system.variables["SUDO_UID"] = "1000";
     },
     Verdict::problem,
     "This is root's session, begun by user 1000 (SUDO_UID)",
     "without sudo",
     {"foreign-runtime-folder"}}};

const std::vector<Case> kCameraCases = {
    {"bundle-incomplete",
     [](SystemDouble& system) { system.contents.erase("/usr/lib/pavo.bundle/Contents/Info.plist"); },
     Verdict::problem, "lacks /usr/lib/pavo.bundle/Contents/Info.plist", "reinstall pavo-camera"},
    {"bundle-incomplete",
     [](SystemDouble& system) {
         system.process(SystemDouble::kCamera).arguments = {"pavo", "camera", "--bundle", "/b"};
     },
     Verdict::problem, "lacks /b/Contents/Info.plist", "reinstall"},
    {"bundle-incomplete",
     [](SystemDouble& system) {
         system.contents["/usr/lib/pavo.bundle/Contents/Resources/configure-pavo-full.png"] = "GIF89a";
     },
     Verdict::problem, "configure-pavo-full.png is no PNG", "reinstall"},
    {"camera-not-running", [](SystemDouble& system) { system.endCamera(); }, Verdict::problem,
     "No camera of this user runs", "pavo camera"},
    {"camera-not-running",
     [](SystemDouble& system) {
         system.endCamera();
         system.service = std::optional(UserService{"enabled", "inactive", "dead"});
     },
     Verdict::problem, "No camera of this user runs", "systemctl --user enable --now pavo-camera"},
    {"names-elsewhere",
     [](SystemDouble& system) {
         system.variables["PAVO_BOOTSTRAP_DIR"] = "/elsewhere";
         system.status = Problem{"nobody answers"};
     },
     Verdict::problem,
     "Process 100 is a camera whose names are in /run/user/1000/pavo, but here they are looked for in "
     "/elsewhere/user",
     "unset PAVO_BOOTSTRAP_DIR"},
    {"names-elsewhere",
     [](SystemDouble& system) { system.environments[100]["PAVO_BOOTSTRAP_DIR"] = "/elsewhere"; },
     Verdict::problem, "whose names are in /elsewhere/user", "the same PAVO_BOOTSTRAP_DIR"},
    {"service-failed",
     [](SystemDouble& system) {
         system.endCamera();
         system.service = std::optional(UserService{"enabled", "failed", "failed"});
     },
     Verdict::problem,
     "The service pavo-camera has failed (failed, failed)",
     "journalctl --user -u pavo-camera",
     {"camera-not-running"}},
    {"service-failed",
     [](SystemDouble& system) {
         system.service = std::optional(UserService{"enabled", "activating", "auto-restart"});
     },
     Verdict::problem, "(activating, auto-restart)", "journalctl"},
    {"service-disabled",
     [](SystemDouble& system) {
         system.endCamera();
         system.service = std::optional(UserService{"disabled", "inactive", "dead"});
     },
     Verdict::hint,
     "installed but disabled",
     "enable --now pavo-camera",
     {"camera-not-running"}},
    {"service-disabled",
     [](SystemDouble& system) {
         system.endCamera();
         system.service = std::optional(UserService{"masked", "inactive", "dead"});
     },
     Verdict::hint,
     "installed but masked",
     "unmask",
     {"camera-not-running"}},
    {"camera-hangs", [](SystemDouble& system) { system.process(SystemDouble::kCamera).state = 'T'; },
     Verdict::problem, "Process 100, the camera, has been stopped", "kill -CONT 100"},
    {"camera-hangs", [](SystemDouble& system) { system.status = Problem{"it does not answer"}; },
     Verdict::problem, "does not say how it is: it does not answer", "systemctl --user restart pavo-camera"},
    {"two-cameras", [](SystemDouble& system) { system.addProcess(101, {"pavo", "camera"}); },
     Verdict::problem, "Processes 100 and 101 are all cameras here", "kill 101"},
    {"two-cameras", [](SystemDouble& system) { system.addCamera(kDaemon, 41); }, Verdict::problem,
     "2 cameras named pavo-camera (objects 40 and 41)", "end all cameras but one"},
    {"producers-cut-off", [](SystemDouble& system) { system.links.erase(SystemDouble::kName); },
     Verdict::problem,
     "Process 100, the camera, has no name /run/user/1000/pavo/com.tarnwell.macos.cam.avextension",
     "restart"},
    {"producers-cut-off",
     [](SystemDouble& system) { system.links[SystemDouble::kName] = "process-99/1.sock"; }, Verdict::problem,
     "leads to process-99/1.sock, which is not the camera (Process 100)", "restart"},
    {"producers-cut-off", [](SystemDouble& system) { system.sockets.clear(); }, Verdict::problem,
     "does not answer", "restart"},
    {"producers-cut-off", [](SystemDouble& system) { system.addFolder(SystemDouble::kNames, 1000, 0770); },
     Verdict::problem, "Others may change the folder of names /run/user/1000/pavo",
     "chmod 700 /run/user/1000/pavo"},
    {"camera-outdated", [](SystemDouble& system) { system.process(SystemDouble::kCamera).isReplaced = true; },
     Verdict::hint, "Process 100, the camera, still runs a program that has been replaced", "restart"},
    {"camera-outdated", [](SystemDouble& system) { system.status.value().version = "1.2.2"; }, Verdict::hint,
     "of version 1.2.2, and this command of 1.2.3", "restart"},
    {"descriptors-exhausted", [](SystemDouble& system) { system.descriptors = {950, 1024}; },
     Verdict::problem, "has 950 of 1024 file descriptors open", "LimitNOFILE=65536"}};

const std::vector<Case> kPipeWireCases = {
    {"no-pipewire",
     [](SystemDouble& system) {
         system.pipeWires.clear();
         system.endCamera();
         system.pipeWires.clear();
     },
     Verdict::problem,
     "No PipeWire daemon runs: /run/user/1000/pipewire-0: Connection refused.",
     "systemctl --user start pipewire wireplumber",
     {"camera-not-running"}},
    {"no-pipewire",
     [](SystemDouble& system) {
         system.pipeWires[kDaemon] = {PipeWireAnswer::Kind::silent, "it does not answer", {}};
     },
     Verdict::problem, "takes connections but tells nothing", "restart pipewire"},
    {"embedded-only", [](SystemDouble& system) { system.makeEmbedded(); }, Verdict::problem,
     "serves one of its own, named pavo-0", "export PIPEWIRE_REMOTE=pavo-0"},
    {"daemon-came-later",
     [](SystemDouble& system) {
         system.removeObjects(kDaemon, "node.name", "pavo-camera");
         system.addCamera(kEmbedded, 7);
     },
     Verdict::problem, "when its clients in pavo-0 have gone; process 300 (chromium) is one",
     "end these clients"},
    {"daemon-came-later",
     [](SystemDouble& system) {
         system.removeObjects(kDaemon, "node.name", "pavo-camera");
         system.addCamera(kEmbedded, 7);
         system.status.value().clients.clear();
     },
     Verdict::problem, "has not moved to the PipeWire daemon", "systemctl --user restart pavo-camera"},
    {"daemon-came-later",
     [](SystemDouble& system) {
         system.removeObjects(kDaemon, "node.name", "pavo-camera");
         system.removeObjects(kDaemon, "node.name", "viewer");
         system.addCamera(kEmbedded, 7);
         system.environments[100]["PAVO_PIPEWIRE"] = "embedded";
     },
     Verdict::problem, "PAVO_PIPEWIRE=embedded", "without PAVO_PIPEWIRE"},
    {"remote-elsewhere", [](SystemDouble& system) { system.variables["PIPEWIRE_REMOTE"] = "pavo-0"; },
     Verdict::problem, "PIPEWIRE_REMOTE sends programs to pavo-0, but the camera is in pipewire-0",
     "unset PIPEWIRE_REMOTE"},
    {"node-missing",
     [](SystemDouble& system) {
         system.removeObjects(kDaemon, "node.name", "pavo-camera");
         system.removeObjects(kDaemon, "node.name", "viewer");
     },
     Verdict::problem, "Process 100 is a camera, but PipeWire has no node pavo-camera", "restart"},
    {"no-session-manager",
     [](SystemDouble& system) { system.removeObjects(kDaemon, "application.name", "WirePlumber"); },
     Verdict::problem, "without a session manager", "systemctl --user start wireplumber"},
    {"client-not-linked",
     [](SystemDouble& system) { system.removeObjects(kDaemon, "link.output.node", "40"); }, Verdict::problem,
     "The client viewer (object 50) asks for the camera but is not linked", "restart wireplumber"},
    {"client-not-linked",
     [](SystemDouble& system) {
         system.addObject(
             kDaemon, 51, "Node",
             {{"node.name", "by-serial"}, {"media.class", "Stream/Input/Video"}, {"target.object", "1040"}});
     },
     Verdict::problem, "by-serial (object 51)", "neither YUY2 nor NV12"},
    {"pipewire-outdated", [](SystemDouble& system) { system.libraryVersion = "1.0.7"; }, Verdict::hint,
     "daemon is of version 1.0.0, and its library of 1.0.7", "restart pipewire"}};

const std::vector<Case> kProducerCases = {
    {"no-producer",
     [](SystemDouble& system) {
         system.endProcess(SystemDouble::kProducer);
         system.status.value().producer.reset();
     },
     Verdict::hint, "clients see the placeholder picture; this is as it should be", "pavo send"},
    {"producer-silent", [](SystemDouble& system) { system.status.value().frames.rate = 0; }, Verdict::problem,
     "the producer, process 200 (pavo), sends nothing", "kill -CONT 200"},
    {"frames-dropped", [](SystemDouble& system) { system.status.value().frames.withoutBuffer = 60; },
     Verdict::hint, "60 of 3600 frames could not be shown", "pavo send --fps 30"},
    {"producer-elsewhere",
     [](SystemDouble& system) {
         system.status.value().producer.reset();
         system.environments[200]["PAVO_BOOTSTRAP_DIR"] = "/elsewhere";
     },
     Verdict::problem,
     "Process 200, a producer, looks for the camera in /elsewhere/user",
     "with the camera's PAVO_BOOTSTRAP_DIR",
     {"no-producer"}},
    {"producer-elsewhere",
     [](SystemDouble& system) {
         system.status.value().producer.reset();
         system.process(200).owner = 1001;
     },
     Verdict::problem,
     "Process 200, a producer, is that of user 1001",
     "as the camera's user",
     {"no-producer"}}};

const std::vector<Case> kBrowserCases = {
    {"no-portal", [](SystemDouble& system) { system.portal = CameraPortal(); }, Verdict::hint,
     "There is no xdg-desktop-portal", "apt install xdg-desktop-portal"},
    {"portal-without-cameras",
     [](SystemDouble& system) { system.portal = CameraPortal{true, 400, false, false}; }, Verdict::problem,
     "The portal (process 400) offers no cameras", "xdg-desktop-portal-gtk"},
    {"portal-blind", [](SystemDouble& system) { system.portal = CameraPortal{true, 400, true, false}; },
     Verdict::problem, "the portal (process 400) says that there is none",
     "restart wireplumber xdg-desktop-portal"},
    {"camera-forbidden",
     [](SystemDouble& system) {
         system.permissions = std::map<std::string, std::string>{{"", "yes"}, {"org.mozilla.firefox", "no"}};
     },
     Verdict::problem, "refuses cameras to org.mozilla.firefox",
     "flatpak permission-remove devices camera org.mozilla.firefox"},
    {"camera-forbidden",
     [](SystemDouble& system) { system.permissions = std::map<std::string, std::string>{{"", "no"}}; },
     Verdict::problem, "every program that is no Flatpak", "DeletePermission devices camera ''"},
    {"chromium-without-pipewire",
     [](SystemDouble& system) {
         system.process(300).arguments = {"chromium", "--enable-features=Other",
                                          "--lang=WebRtcPipeWireCamera"};
     },
     Verdict::hint, "chromium (process 300) was started without the feature WebRtcPipeWireCamera",
     "--enable-features=WebRtcPipeWireCamera"},
    {"firefox-without-pipewire",
     [](SystemDouble& system) { system.contents["/home/user/.mozilla/firefox/abc.default/prefs.js"] = "\n"; },
     Verdict::hint,
     "Firefox (process 500) does not ask PipeWire for cameras: its profile "
     "/home/user/.mozilla/firefox/abc.default",
     "about:config"},
    {"firefox-without-pipewire",
     [](SystemDouble& system) {
         system.contents["/etc/os-release"] = "ID=fedora\n";
         system.contents["/home/user/.mozilla/firefox/abc.default/prefs.js"] =
             "user_pref(\"media.webrtc.camera.allow-pipewire\", false);\n";
     },
     Verdict::hint, "Firefox (process 500)", "about:config"}};

const std::vector<Case> kProgramCases = {
    {"no-v4l2-bridge", [](SystemDouble& system) { system.programs.erase("pw-v4l2"); }, Verdict::hint,
     "pw-v4l2 is not installed", "pipewire-v4l2"},
    {"same-name-device",
     [](SystemDouble& system) { system.addFile("/sys/class/video4linux/video9/name", "Pavo Camera\n"); },
     Verdict::hint, "The device /dev/video9 is named \"Pavo Camera\"", "modprobe -r v4l2loopback"},
    {"no-gstreamer-source",
     [](SystemDouble& system) {
         system.files.erase("/usr/lib/x86_64-linux-gnu/gstreamer-1.0/libgstpipewire.so");
     },
     Verdict::hint, "without pipewiresrc", "gstreamer1.0-pipewire"}};

std::vector<Case> cases()
{
    std::vector<Case> all;
    for (const auto* some :
         {&kSessionCases, &kCameraCases, &kPipeWireCases, &kProducerCases, &kBrowserCases, &kProgramCases})
        all.insert(all.end(), some->begin(), some->end());
    return all;
}

TEST(Doctor, FindsNothingWhereAllIsWell)
{
    const SystemDouble system;
    const Diagnosis diagnosis = diagnose(system);
    EXPECT_EQ(diagnosis.entries.size(), allCauses().size());
    for (const auto& [cause, finding] : diagnosis.entries)
        EXPECT_EQ(finding.verdict, Verdict::fine) << cause.id << ": " << finding.text;
}

TEST(Doctor, FindsEachCauseAndNoOther)
{
    for (const Case& each : cases()) {
        SCOPED_TRACE(each.id + ": " + each.text);
        SystemDouble system;
        each.happens(system);
        const Diagnosis diagnosis = diagnose(system);
        const Finding& finding = diagnosis.of(each.id);
        EXPECT_EQ(finding.verdict, each.verdict);
        EXPECT_THAT(finding.text, HasSubstr(each.text));
        EXPECT_THAT(finding.remedy, HasSubstr(each.remedy));
        auto expected = each.others;
        expected.insert(each.id);
        EXPECT_EQ(complaintsOf(diagnosis), expected);
    }
}

TEST(Doctor, EachCauseHasBeenMadeTrue)
{
    std::set<std::string> made;
    std::set<std::string> known;
    for (const Case& each : cases())
        made.insert(each.id);
    for (const Cause& cause : allCauses())
        known.emplace(cause.id);
    EXPECT_EQ(made, known);
    EXPECT_EQ(known.size(), allCauses().size()) << "an id is given twice";
}

struct Resemblance {
    const char* what;
    std::function<void(SystemDouble&)> happens;
};

const std::vector<Resemblance> kResemblances = {
    {"a camera without a service",
     [](SystemDouble& system) { system.service = std::optional<UserService>(); }},
    {"a camera by hand beside a disabled service",
     [](SystemDouble& system) {
         system.service = std::optional(UserService{"disabled", "inactive", "dead"});
     }},
    {"another user's camera beside ours",
     [](SystemDouble& system) { system.addProcess(101, {"pavo", "camera"}, 1001); }},
    {"another camera of ours, with names and a PipeWire elsewhere",
     [](SystemDouble& system) {
         system.addProcess(101, {"pavo", "camera"});
         system.environments[101]["PAVO_BOOTSTRAP_DIR"] = "/elsewhere";
     }},
    {"another program that has a camera on its command line",
     [](SystemDouble& system) { system.addProcess(101, {"grep", "camera"}); }},
    {"an embedded camera whose clients know of it",
     [](SystemDouble& system) {
         system.makeEmbedded();
         system.variables["PIPEWIRE_REMOTE"] = "pavo-0";
     }},
    {"a PIPEWIRE_REMOTE that leads to the camera",
     [](SystemDouble& system) { system.variables["PIPEWIRE_REMOTE"] = "pipewire-0"; }},
    {"an empty PIPEWIRE_REMOTE", [](SystemDouble& system) { system.variables["PIPEWIRE_REMOTE"] = ""; }},
    {"a client that is linked a moment later",
     [](SystemDouble& system) {
         system.removeObjects(kDaemon, "link.output.node", "40");
         system.meanwhile = [&system] {
             system.addObject(kDaemon, 60, "Link", {{"link.output.node", "40"}, {"link.input.node", "50"}});
         };
     }},
    {"a client that waits for another camera",
     [](SystemDouble& system) {
         system.addObject(kDaemon, 51, "Node",
                          {{"media.class", "Stream/Input/Video"}, {"target.object", "webcam"}});
     }},
    {"a camera that moves to the daemon a moment later",
     [](SystemDouble& system) {
         system.status.value().clients.clear();
         system.removeObjects(kDaemon, "node.name", "pavo-camera");
         system.addCamera(kEmbedded, 7);
         system.meanwhile = [&system] {
             system.pipeWires.erase(kEmbedded);
             system.addCamera(kDaemon, 44);
         };
     }},
    {"a node that comes a moment later",
     [](SystemDouble& system) {
         system.removeObjects(kDaemon, "node.name", "pavo-camera");
         system.removeObjects(kDaemon, "node.name", "viewer");
         system.meanwhile = [&system] { system.addCamera(kDaemon, 44); };
     }},
    {"an answer that comes a moment later",
     [](SystemDouble& system) {
         const auto status = system.status;
         system.status = Problem{"not yet"};
         system.meanwhile = [&system, status] { system.status = status; };
     }},
    {"another session manager",
     [](SystemDouble& system) {
         system.removeObjects(kDaemon, "application.name", "WirePlumber");
         system.addObject(kDaemon, 31, "Client", {{"application.process.binary", "pipewire-media-session"}});
     }},
    {"a portal that has not been needed yet",
     [](SystemDouble& system) { system.portal = CameraPortal{true, 0, false, false}; }},
    {"a portal without a camera, where there is none",
     [](SystemDouble& system) {
         system.makeEmbedded();
         system.variables["PIPEWIRE_REMOTE"] = "pavo-0";
         system.portal = CameraPortal{true, 400, true, false};
     }},
    {"a question that waits for its answer",
     [](SystemDouble& system) {
         system.permissions = std::map<std::string, std::string>{{"org.app", "ask"}};
     }},
    {"a feature that was switched on in the browser",
     [](SystemDouble& system) {
         system.process(300).arguments = {"chromium"};
         system
             .addProcess(301, {"chromium --type=utility --enable-features=A,WebRtcPipeWireCamera --lang=en"})
             .program = "chromium";
     }},
    {"another user's browser",
     [](SystemDouble& system) {
         system.endProcess(300);
         system.addProcess(300, {"chromium"}, 1001);
     }},
    {"a profile that no Firefox uses",
     [](SystemDouble& system) { system.addFile("/home/user/.mozilla/firefox/old/prefs.js", "\n"); }},
    {"a producer that is silent because nobody watches",
     [](SystemDouble& system) {
         system.status.value().clients.clear();
         system.status.value().frames.rate = 0;
     }},
    {"a producer that has just come",
     [](SystemDouble& system) {
         system.status.value().producer->connectedSeconds = 0.5;
         system.status.value().frames.rate = 0;
     }},
    {"frames that nobody was there for",
     [](SystemDouble& system) { system.status.value().frames.unwatched = 3000; }},
    {"a frame now and then", [](SystemDouble& system) { system.status.value().frames.replaced = 30; }},
    {"no GStreamer at all",
     [](SystemDouble& system) {
         system.programs.erase("gst-launch-1.0");
         system.files.erase("/usr/lib/x86_64-linux-gnu/gstreamer-1.0/libgstpipewire.so");
     }},
    {"a GStreamer that has its plugins elsewhere",
     [](SystemDouble& system) {
         system.files.erase("/usr/lib/x86_64-linux-gnu/gstreamer-1.0/libgstpipewire.so");
         system.addFile("/opt/plugins/libgstpipewire.so", "content");
         system.variables["GST_PLUGIN_PATH"] = "/opt/other:/opt/plugins";
     }},
    {"a limit of descriptors that is none",
     [](SystemDouble& system) { system.descriptors = {5000, std::numeric_limits<std::uint64_t>::max()}; }}};

TEST(Doctor, IsSilentAboutWhatOnlyResemblesACause)
{
    for (const auto& [what, happens] : kResemblances) {
        SCOPED_TRACE(what);
        SystemDouble system;
        happens(system);
        EXPECT_THAT(complaintsOf(diagnose(system)), IsEmpty());
    }
}

TEST(Doctor, LeavesProducersOfOtherCamerasAlone)
{
    SystemDouble system;
    system.endProcess(SystemDouble::kProducer);
    system.status.value().producer.reset();
    system.addProcess(101, {"pavo", "camera"});
    system.addProcess(201, {"pavo", "send"});
    for (const pid_t pid : {101, 201})
        system.environments[pid]["PAVO_BOOTSTRAP_DIR"] = "/elsewhere";
    system.addProcess(102, {"pavo", "camera"}, 1001);
    system.addProcess(202, {"pavo", "send"}, 1001);
    EXPECT_EQ(complaintsOf(diagnose(system)), std::set<std::string>{"no-producer"});
}

struct Doubt {
    std::string id;
    std::function<void(SystemDouble&)> happens;
    std::string text;
};

void withoutBus(SystemDouble& system)
{
    system.portal = Problem{"there is no session bus"};
    system.service = Problem{"there is no session bus"};
    system.permissions = Problem{"there is no session bus"};
}

void withoutStatus(SystemDouble& system)
{
    system.status = Problem{"it does not answer"};
}

void withSilentPipeWire(SystemDouble& system)
{
    system.pipeWires[kDaemon] = {PipeWireAnswer::Kind::silent, "it does not answer", {}};
}

const std::vector<Doubt> kDoubts = {
    {"foreign-runtime-folder", [](SystemDouble& system) { system.variables.erase("XDG_RUNTIME_DIR"); },
     "no runtime folder"},
    {"service-failed", withoutBus, "there is no session bus"},
    {"service-disabled", withoutBus, "there is no session bus"},
    {"no-portal", withoutBus, "there is no session bus"},
    {"portal-without-cameras", withoutBus, "there is no session bus"},
    {"portal-blind", withoutBus, "there is no session bus"},
    {"camera-forbidden", withoutBus, "there is no session bus"},
    {"no-producer", withoutStatus, "cannot be asked: it does not answer."},
    {"producer-silent", withoutStatus, "cannot be asked: it does not answer."},
    {"frames-dropped", withoutStatus, "cannot be asked: it does not answer."},
    {"two-cameras", withSilentPipeWire, "it does not answer"},
    {"node-missing", withSilentPipeWire, "it does not answer"},
    {"no-session-manager", withSilentPipeWire, "it does not answer"},
    {"remote-elsewhere", [](SystemDouble& system) { system.variables["PIPEWIRE_REMOTE"] = "[a,b]"; },
     "PIPEWIRE_REMOTE is a list: [a,b]"},
    {"descriptors-exhausted", [](SystemDouble& system) { system.descriptors.reset(); }, "cannot be read"},
    {"firefox-without-pipewire", [](SystemDouble& system) { system.links.clear(); }, "profile was not found"},
    {"firefox-without-pipewire",
     [](SystemDouble& system) { system.contents.erase("/home/user/.mozilla/firefox/abc.default/prefs.js"); },
     "cannot be read"},
    {"firefox-without-pipewire",
     [](SystemDouble& system) {
         system.contents["/etc/os-release"] = "ID=fedora\n";
         system.contents["/home/user/.mozilla/firefox/abc.default/prefs.js"] = "\n";
     },
     "depends on who built it"}};

TEST(Doctor, SaysWhatItCannotTellAndWhy)
{
    for (const auto& [id, happens, text] : kDoubts) {
        SCOPED_TRACE(id);
        SystemDouble system;
        happens(system);
        const Diagnosis diagnosis = diagnose(system);
        EXPECT_EQ(diagnosis.of(id).verdict, Verdict::unknown);
        EXPECT_THAT(diagnosis.of(id).text, HasSubstr(text));
        EXPECT_EQ(diagnosis.of(id).remedy, "");
    }
}

}  // namespace
}  // namespace pavo::test
