#include "Tests/Support/PrivateSystemBus.h"

#include "Platform/Support/linux/SystemBus.h"
#include "Tests/Support/Wait.h"

#include <signal.h>

#include <cstdlib>
#include <fstream>

namespace pavo::test {

namespace {

constexpr const char* kAddressVariable = "DBUS_SYSTEM_BUS_ADDRESS";

// No service folders: the bus starts nothing by itself.
void writeConfiguration(const std::string& path, const std::string& address)
{
    std::ofstream(path) << "<busconfig><listen>" << address << "</listen><auth>EXTERNAL</auth>"
                        << "<policy context=\"default\"><allow send_destination=\"*\"/><allow own=\"*\"/>"
                        << "<allow receive_sender=\"*\"/></policy></busconfig>\n";
}

bool takesConnections()
{
    int result = 0;
    const auto bus = openSystemBus(result);
    const char* name = nullptr;
    return bus && sd_bus_get_unique_name(bus.get(), &name) >= 0;
}

}  // namespace

bool PrivateSystemBus::isAvailable(std::string* why)
{
    for (const char* program : {"setpriv", "dbus-daemon"}) {
        if (isOnPath(program)) continue;
        if (why) *why = std::string(program) + " is not installed";
        return false;
    }
    return true;
}

PrivateSystemBus::PrivateSystemBus()
{
    if (const char* address = std::getenv(kAddressVariable)) outerAddress_ = address;
    const auto address = "unix:path=" + folder_.path() + "/bus";
    const auto configuration = folder_.path() + "/bus.conf";
    writeConfiguration(configuration, address);
    setenv(kAddressVariable, address.c_str(), 1);
    daemon_ = ChildProcess({"dbus-daemon", "--nofork", "--nopidfile", "--config-file=" + configuration},
                           folder_.path() + "/log");
    isReady_ = waitFor(takesConnections, std::chrono::seconds(20));
}

PrivateSystemBus::~PrivateSystemBus()
{
    if (outerAddress_)
        setenv(kAddressVariable, outerAddress_->c_str(), 1);
    else
        unsetenv(kAddressVariable);
}

void PrivateSystemBus::kill()
{
    daemon_.end(SIGKILL);
}

}  // namespace pavo::test
