// What the doctor sees of a real computer: files, processes, and a session's services, which are stand-ins.

#include "Tests/Support/BusService.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Patience.h"
#include "Tests/Support/PipeWireSession.h"
#include "Tests/Support/Wait.h"
#include "Tools/Doctor/Doctor.h"
#include "Tools/Doctor/LinuxSystem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace pavo::test {
namespace {

using namespace pavo::tools;
using testing::Contains;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;

// Takes connections and says nothing.
UniqueFd listenAt(const std::string& path)
{
    UniqueFd listening(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    EXPECT_EQ(::bind(listening.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(listening.get(), 4), 0);
    return listening;
}

class LinuxSystemTest : public testing::Test {
protected:
    std::string path(const std::string& name) const { return folder_.path() + "/" + name; }
    std::optional<Process> processOf(pid_t pid) const
    {
        for (Process& process : system_.processes())
            if (process.pid == pid) return std::move(process);
        return std::nullopt;
    }

    const TemporaryFolder folder_;
    const LinuxSystem system_{Patience(kPatience, kPatience)};
};

TEST_F(LinuxSystemTest, SeesFilesFoldersAndSockets)
{
    std::ofstream(path("file")) << "content";
    ::chmod(path("file").c_str(), 0640);
    std::filesystem::create_symlink("file", path("link"));
    const UniqueFd socket = listenAt(path("socket"));

    const auto file = system_.statusOf(path("link"));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->kind, FileStatus::Kind::file);
    EXPECT_EQ(file->owner, ::geteuid());
    EXPECT_EQ(file->permissions, 0640U);
    EXPECT_EQ(system_.statusOf(folder_.path())->kind, FileStatus::Kind::folder);
    EXPECT_EQ(system_.statusOf(path("socket"))->kind, FileStatus::Kind::socket);
    EXPECT_EQ(system_.statusOf("/dev/null")->kind, FileStatus::Kind::other);
    EXPECT_FALSE(system_.statusOf(path("none")));
    EXPECT_EQ(system_.readLink(path("link")), "file");
    EXPECT_FALSE(system_.readLink(path("file")));
    EXPECT_THAT(system_.list(folder_.path()), ElementsAre("file", "link", "socket"));
    EXPECT_THAT(system_.list(path("none")), IsEmpty());
    EXPECT_TRUE(system_.isWritable(path("file")));
    EXPECT_FALSE(system_.isWritable(path("none")));
}

TEST_F(LinuxSystemTest, ReadsFilesAndWaitsForNone)
{
    std::ofstream(path("file")) << "content";
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(system_.readFile(path("file")), "content");
    EXPECT_FALSE(system_.readFile(path("pipe")));
    EXPECT_FALSE(system_.readFile(path("none")));
    EXPECT_FALSE(system_.readFile(folder_.path()));
}

TEST_F(LinuxSystemTest, KnowsWhetherASocketAnswersHoweverLongItsPath)
{
    const std::string deep = path(std::string(100, 'd'));
    std::filesystem::create_directory(deep);
    std::filesystem::create_symlink("../socket", deep + "/name");
    {
        const UniqueFd socket = listenAt(path("socket"));
        EXPECT_TRUE(system_.answers(path("socket")));
        EXPECT_TRUE(system_.answers(deep + "/name"));
    }
    EXPECT_FALSE(system_.answers(path("socket")));
    EXPECT_FALSE(system_.answers(path("none")));
}

TEST_F(LinuxSystemTest, SeesProcesses)
{
    ::setenv("PAVO_DOCTOR_TEST", "a=b", 1);
    ChildProcess child({"sleep", "600"});
    ::unsetenv("PAVO_DOCTOR_TEST");
    ASSERT_TRUE(waitFor([&] { return processOf(child.pid()) && processOf(child.pid())->program == "sleep"; },
                        kPatience));
    const auto process = processOf(child.pid());
    EXPECT_THAT(process->arguments, ElementsAre("sleep", "600"));
    EXPECT_EQ(process->owner, ::geteuid());
    EXPECT_FALSE(process->isReplaced);
    EXPECT_EQ(system_.environmentOf(child.pid())->at("PAVO_DOCTOR_TEST"), "a=b");
    child.signal(SIGSTOP);
    EXPECT_TRUE(waitFor([&] { return processOf(child.pid())->state == 'T'; }, kPatience));
    child.end(SIGKILL);
    EXPECT_FALSE(processOf(child.pid()));
}

TEST_F(LinuxSystemTest, SeesThatAProgramHasBeenReplaced)
{
    std::filesystem::copy("/bin/sleep", path("program"));
    ChildProcess child({path("program"), "600"});
    ASSERT_TRUE(waitFor(
        [&] { return processOf(child.pid()) && processOf(child.pid())->program == "program"; }, kPatience));
    std::filesystem::remove(path("program"));
    const auto process = processOf(child.pid());
    EXPECT_TRUE(process->isReplaced);
    EXPECT_EQ(process->program, "program");
}

TEST_F(LinuxSystemTest, CountsDescriptors)
{
    const auto before = system_.descriptorsOf(::getpid());
    ASSERT_TRUE(before);
    const UniqueFd one(::dup(0)), two(::dup(0));
    EXPECT_EQ(system_.descriptorsOf(::getpid())->open, before->open + 2);
    EXPECT_EQ(before->limit, static_cast<std::uint64_t>(::sysconf(_SC_OPEN_MAX)));
}

TEST_F(LinuxSystemTest, KnowsItself)
{
    EXPECT_EQ(system_.user(), ::geteuid());
    EXPECT_EQ(system_.version(), PAVO_VERSION);
    EXPECT_THAT(system_.bundlePath(), HasSubstr("CMIOExtensionSupport.bundle"));
    EXPECT_TRUE(system_.isInstalled("sh"));
    EXPECT_FALSE(system_.isInstalled("no-such-program"));
    EXPECT_NE(system_.pipeWireLibraryVersion(), "");
}

// In a session whose bus is real, and whose other services are stand-ins.
class SessionServices : public testing::Test {
protected:
    void SetUp() override
    {
        std::string why;
        if (!PipeWireSession::isAvailable(&why)) GTEST_SKIP() << why;
        session_ = std::make_unique<PipeWireSession>(PipeWireSession::Daemon::absent);
        ASSERT_TRUE(session_->isReady());
        // Stand-ins look for the system's bus.
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", ::getenv("DBUS_SESSION_BUS_ADDRESS"), 1);
    }
    void TearDown() override { ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }

    static LinuxSystem system() { return LinuxSystem(Patience(kPatience, kPatience)); }
    static bool isCall(sd_bus_message* call, const char* interface, const char* method)
    {
        return sd_bus_message_is_method_call(call, interface, method) > 0;
    }

    std::unique_ptr<PipeWireSession> session_;
};

constexpr const char* kSystemdPath = "/org/freedesktop/systemd1";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kStorePath = "/org/freedesktop/impl/portal/PermissionStore";
constexpr const char* kStore = "org.freedesktop.impl.portal.PermissionStore";

TEST_F(SessionServices, HasNoSystemd)
{
    const auto service = system().cameraService();
    ASSERT_TRUE(service) << service.problem().text;
    EXPECT_FALSE(service.value());
}

// systemd with a unit in the state that is told.
class StandInSystemd {
public:
    StandInSystemd(std::string fileState, std::string activeState, std::string subState)
        : service_("org.freedesktop.systemd1", kSystemdPath,
                   [fileState, activeState, subState](sd_bus_message* call) {
                       const char* manager = "org.freedesktop.systemd1.Manager";
                       if (sd_bus_message_is_method_call(call, manager, "GetUnitFileState") > 0) {
                           if (fileState.empty())
                               sd_bus_reply_method_errorf(call, "org.freedesktop.DBus.Error.FileNotFound",
                                                          "none");
                           else
                               sd_bus_reply_method_return(call, "s", fileState.c_str());
                       } else if (sd_bus_message_is_method_call(call, manager, "ListUnitsByNames") > 0) {
                           sd_bus_reply_method_return(call, "a(ssssssouso)", 1, "pavo-camera.service",
                                                      "Pavo Camera", "loaded", activeState.c_str(),
                                                      subState.c_str(), "", "/unit", 0, "", "/");
                       }
                       return BusService::Outcome::going;
                   })
    {}
    bool isReady() const { return service_.isReady(); }

private:
    BusService service_;
};

TEST_F(SessionServices, TellHowTheServiceIs)
{
    const StandInSystemd systemd("disabled", "failed", "exit-code");
    ASSERT_TRUE(systemd.isReady());
    const auto service = system().cameraService();
    ASSERT_TRUE(service) << service.problem().text;
    ASSERT_TRUE(service.value());
    EXPECT_EQ(service.value()->fileState, "disabled");
    EXPECT_EQ(service.value()->activeState, "failed");
    EXPECT_EQ(service.value()->subState, "exit-code");
}

TEST_F(SessionServices, TellThatThereIsNoUnit)
{
    const StandInSystemd systemd("", "inactive", "dead");
    const auto service = system().cameraService();
    ASSERT_TRUE(service && service.value());
    EXPECT_EQ(service.value()->fileState, "");
}

TEST_F(SessionServices, HasNoPortal)
{
    const auto portal = system().cameraPortal();
    ASSERT_TRUE(portal) << portal.problem().text;
    EXPECT_FALSE(portal.value().isInstalled);
    EXPECT_EQ(portal.value().pid, 0);
}

TEST_F(SessionServices, TellWhetherThePortalSeesACamera)
{
    for (const bool isPresent : {true, false}) {
        const BusService service("org.freedesktop.portal.Desktop", kPortalPath,
                                 [isPresent](sd_bus_message* call) {
                                     const char* interface = "";
                                     const char* property = "";
                                     if (isCall(call, "org.freedesktop.DBus.Properties", "Get") &&
                                         sd_bus_message_read(call, "ss", &interface, &property) > 0 &&
                                         std::string(interface) + "." + property ==
                                             "org.freedesktop.portal.Camera.IsCameraPresent")
                                         sd_bus_reply_method_return(call, "v", "b", isPresent ? 1 : 0);
                                     return BusService::Outcome::going;
                                 });
        ASSERT_TRUE(service.isReady());
        const auto portal = system().cameraPortal();
        ASSERT_TRUE(portal) << portal.problem().text;
        EXPECT_TRUE(portal.value().isInstalled);
        EXPECT_EQ(portal.value().pid, ::getpid());
        EXPECT_TRUE(portal.value().hasCameras);
        EXPECT_EQ(portal.value().seesCamera, isPresent);
    }
}

TEST_F(SessionServices, TellThatThePortalHasNoCameras)
{
    const BusService service("org.freedesktop.portal.Desktop", kPortalPath, [](sd_bus_message* call) {
        sd_bus_reply_method_errorf(call, "org.freedesktop.DBus.Error.InvalidArgs", "No such interface");
        return BusService::Outcome::going;
    });
    const auto portal = system().cameraPortal();
    ASSERT_TRUE(portal) << portal.problem().text;
    EXPECT_FALSE(portal.value().hasCameras);
}

TEST_F(SessionServices, TellWhatIsForbidden)
{
    const BusService service(kStore, kStorePath, [](sd_bus_message* call) {
        const char* table = "";
        const char* id = "";
        if (isCall(call, kStore, "Lookup") && sd_bus_message_read(call, "ss", &table, &id) > 0 &&
            std::string(table) + "/" + id == "devices/camera")
            sd_bus_reply_method_return(call, "a{sas}v", 3, "", 1, "yes", "org.app", 2, "no", "later",
                                       "org.other", 0, "y", 0);
        return BusService::Outcome::going;
    });
    const auto permissions = system().cameraPermissions();
    ASSERT_TRUE(permissions) << permissions.problem().text;
    EXPECT_EQ(permissions.value(), (std::map<std::string, std::string>{{"", "yes"}, {"org.app", "no"}}));
}

TEST_F(SessionServices, TellThatNothingHasBeenAskedYet)
{
    EXPECT_EQ(system().cameraPermissions().problem().text, "the permission store does not run");
    const BusService service(kStore, kStorePath, [](sd_bus_message* call) {
        sd_bus_reply_method_errorf(call, "org.freedesktop.portal.Error.NotFound", "No entry for camera");
        return BusService::Outcome::going;
    });
    const auto permissions = system().cameraPermissions();
    ASSERT_TRUE(permissions) << permissions.problem().text;
    EXPECT_THAT(permissions.value(), IsEmpty());
}

TEST_F(SessionServices, AreNotWaitedForLong)
{
    const BusService service(kStore, kStorePath, [](sd_bus_message*) { return BusService::Outcome::going; });
    const LinuxSystem impatient(Patience(std::chrono::milliseconds(100), kPatience));
    EXPECT_EQ(impatient.cameraPermissions().problem().text, std::string(kStore) + " does not answer");
    // Others may still answer.
    EXPECT_TRUE(impatient.cameraPortal());
}

TEST_F(SessionServices, AreNotAskedWhenTimeIsUp)
{
    const LinuxSystem late(Patience(kPatience, std::chrono::milliseconds(0)));
    EXPECT_EQ(late.cameraPortal().problem().text, "no time was left to ask");
    EXPECT_EQ(late.pipeWire("pipewire-0").problem, "no time was left to ask");
    EXPECT_EQ(late.cameraStatus().problem().text, "no time was left to ask");
}

TEST_F(SessionServices, MayBeMissingTogetherWithTheBus)
{
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus", 1);
    const auto portal = system().cameraPortal();
    ::setenv("DBUS_SESSION_BUS_ADDRESS", ::getenv("DBUS_SYSTEM_BUS_ADDRESS"), 1);
    EXPECT_EQ(portal.problem().text, "there is no session bus: No such file or directory");
}

TEST_F(SessionServices, MayNotHoldTheDoctorBySilence)
{
    const UniqueFd bus = listenAt(session_->folder() + "/silent-bus");
    const UniqueFd pipeWire = listenAt(session_->folder() + "/pipewire-0");
    ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + session_->folder() + "/silent-bus").c_str(), 1);
    const LinuxSystem impatient(Patience(std::chrono::milliseconds(200), kPatience));
    const Diagnosis diagnosis = diagnose(impatient);
    ::setenv("DBUS_SESSION_BUS_ADDRESS", ::getenv("DBUS_SYSTEM_BUS_ADDRESS"), 1);
    EXPECT_EQ(diagnosis.of("no-portal").verdict, Verdict::unknown);
    EXPECT_THAT(diagnosis.of("no-portal").text, HasSubstr("the session bus does not answer"));
    EXPECT_EQ(diagnosis.of("no-pipewire").verdict, Verdict::problem);
    EXPECT_THAT(diagnosis.of("no-pipewire").text, HasSubstr("takes connections but tells nothing"));
}

TEST_F(SessionServices, HasNoPipeWire)
{
    const auto answer = system().pipeWire("pipewire-0");
    EXPECT_EQ(answer.kind, PipeWireAnswer::Kind::absent);
    EXPECT_NE(answer.problem, "");
}

}  // namespace
}  // namespace pavo::test
