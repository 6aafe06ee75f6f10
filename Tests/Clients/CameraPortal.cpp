#include "Tests/Clients/CameraPortal.h"

#include "Tests/Support/Patience.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace pavo::test {

namespace {

constexpr const char* kPortalProgram = "/usr/libexec/xdg-desktop-portal";
constexpr const char* kPermissionsProgram = "/usr/libexec/xdg-permission-store";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kUserName = "org.freedesktop.impl.portal.desktop.pavotest";
constexpr const char* kDesktop = "pavotest";

// Tells the portal whom this desktop lets ask the user.
void describeDesktop(const std::string& folder)
{
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/pavotest.portal")
        << "[portal]\nDBusName=" << kUserName
        << "\nInterfaces=org.freedesktop.impl.portal.Access;\nUseIn=" << kDesktop << "\n";
}

// Whether the answer to a call with busctl is yes. Keeps it in `folder`.
bool isTrue(std::vector<std::string> call, const std::string& folder)
{
    const std::string output = folder + "/bus-answer";
    call.insert(call.begin(), {"busctl", "--user"});
    ChildProcess process(call, output);
    return process.waitForExit(kPatience) == 0 && readFile(output) == "b true\n";
}

bool hasName(const std::string& name, const std::string& folder)
{
    return isTrue({"call", "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                   "NameHasOwner", "s", name},
                  folder);
}

bool knowsACamera(const std::string& folder)
{
    return isTrue({"get-property", "org.freedesktop.portal.Desktop", kPortalPath,
                   "org.freedesktop.portal.Camera", "IsCameraPresent"},
                  folder);
}

}  // namespace

bool CameraPortal::isAvailable(std::string* why)
{
    for (const char* program : {kPortalProgram, kPermissionsProgram, "/usr/bin/busctl"}) {
        if (::access(program, X_OK) == 0) continue;
        if (why) *why = std::string(program) + " is not installed";
        return false;
    }
    return true;
}

CameraPortal::CameraPortal(const std::string& folder)
{
    if (const char* outer = std::getenv("DBUS_SYSTEM_BUS_ADDRESS")) outerSystemBus_ = outer;
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", std::getenv("DBUS_SESSION_BUS_ADDRESS"), 1);
    describeDesktop(folder + "/portals");
    user_ = std::make_unique<BusService>(kUserName, kPortalPath,
                                         [this](sd_bus_message* call) { return answer(call); });
    permissions_ = ChildProcess({kPermissionsProgram}, folder + "/permissions.log");
    if (!user_->isReady() ||
        !eventually([&folder] { return hasName("org.freedesktop.impl.portal.PermissionStore", folder); }))
        return;
    portal_ = ChildProcess({"env", "XDG_DESKTOP_PORTAL_DIR=" + folder + "/portals",
                            std::string("XDG_CURRENT_DESKTOP=") + kDesktop, kPortalProgram, "--verbose"},
                           folder + "/portal.log");
    isReady_ = eventually([&folder] { return knowsACamera(folder); });
}

CameraPortal::~CameraPortal()
{
    portal_.end(SIGTERM);
    permissions_.end(SIGTERM);
    user_.reset();
    outerSystemBus_ ? ::setenv("DBUS_SYSTEM_BUS_ADDRESS", outerSystemBus_->c_str(), 1)
                    : ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

BusService::Outcome CameraPortal::answer(sd_bus_message* call)
{
    if (sd_bus_message_is_method_call(call, "org.freedesktop.impl.portal.Access", "AccessDialog") > 0) {
        ++questions_;
        sd_bus_reply_method_return(call, "ua{sv}", 0, 0);
    } else {
        // Above all the question for properties, of which there are none.
        sd_bus_reply_method_errorf(call, SD_BUS_ERROR_UNKNOWN_METHOD, "Not of this desktop");
    }
    return BusService::Outcome::going;
}

}  // namespace pavo::test
