#include "Tests/Support/PipeWireSession.h"

#include "Tests/Support/Wait.h"
#include "Tools/SessionManagerConfig.h"

#include <nlohmann/json.hpp>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace pavo::test {

namespace {

// No service folders: nothing that the bus would start by itself outlives the session.
constexpr const char* kBusConfiguration = R"(<busconfig>
  <type>session</type>
  <listen>unix:path=%BUS%</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

bool acceptsConnections(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return false;
    const bool isOpen =
        ::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    ::close(descriptor);
    return isOpen;
}

std::string asText(const nlohmann::json& value)
{
    return value.is_string() ? value.get<std::string>() : value.dump();
}

PipeWireSession::Object parseObject(const nlohmann::json& entry)
{
    PipeWireSession::Object object;
    object.id = entry.value("id", 0U);
    const std::string type = entry.value("type", "");
    object.type = type.substr(type.rfind(':') + 1);
    const auto info = entry.find("info");
    const auto& holder = info != entry.end() && info->is_object() ? *info : entry;
    for (const char* key : {"props", "properties"})
        if (const auto found = holder.find(key); found != holder.end() && found->is_object())
            for (const auto& [name, value] : found->items())
                object.properties[name] = asText(value);
    if (holder.contains("state")) object.state = asText(holder["state"]);
    return object;
}

// Whether its scripts, which link clients, are loaded.
bool isReadyManager(const PipeWireSession::Object& object)
{
    const auto property = [&object](const char* name) {
        const auto found = object.properties.find(name);
        return found == object.properties.end() ? std::string() : found->second;
    };
    // WirePlumber 0.4 makes this second connection last; 0.5 then names what it does.
    return object.type == "Client" &&
           (property("application.name") == "WirePlumber [export]" ||
            property("session.services").find("policy.linking.standard") != std::string::npos);
}

bool isSessionManagerReady()
{
    const auto objects = PipeWireSession::objects();
    return std::any_of(objects.begin(), objects.end(), isReadyManager);
}

}  // namespace

bool PipeWireSession::isAvailable(std::string* why)
{
    for (const char* program : {"setpriv", "dbus-daemon", "pipewire", "wireplumber", "pw-dump"}) {
        if (isOnPath(program)) continue;
        if (why) *why = std::string(program) + " is not installed";
        return false;
    }
    return true;
}

PipeWireSession::PipeWireSession(Daemon daemon)
{
    for (const char* name :
         {"HOME", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME", "XDG_STATE_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"})
        setEnvironment(name, folder_.path());
    for (const char* name :
         {"PIPEWIRE_REMOTE", "PIPEWIRE_CORE", "PIPEWIRE_RUNTIME_DIR", "PIPEWIRE_CONFIG_DIR",
          "PIPEWIRE_CONFIG_NAME", "DISPLAY", "WAYLAND_DISPLAY", "PAVO_PIPEWIRE"})
        setEnvironment(name, std::nullopt);
    setEnvironment("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + folder_.path() + "/bus");
    isReady_ = startBus() && (daemon == Daemon::absent || startDaemon());
}

PipeWireSession::~PipeWireSession()
{
    sessionManager_.end(SIGTERM);
    pipeWire_.end(SIGTERM);
    bus_.end(SIGTERM);
    for (const auto& [name, value] : savedEnvironment_)
        value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
}

void PipeWireSession::setEnvironment(const char* name, const std::optional<std::string>& value)
{
    const char* old = std::getenv(name);
    savedEnvironment_.emplace(name, old ? std::optional<std::string>(old) : std::nullopt);
    value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
}

bool PipeWireSession::startBus()
{
    const std::string socket = folder_.path() + "/bus";
    std::string configuration = kBusConfiguration;
    configuration.replace(configuration.find("%BUS%"), 5, socket);
    std::ofstream(folder_.path() + "/bus.conf") << configuration;
    bus_ = ChildProcess({"dbus-daemon", "--config-file=" + folder_.path() + "/bus.conf", "--nofork"},
                        folder_.path() + "/bus.log");
    return waitFor([&socket] { return acceptsConnections(socket); });
}

bool PipeWireSession::startPipeWire()
{
    const std::string socket = folder_.path() + "/pipewire-0";
    pipeWire_ = ChildProcess({"pipewire"}, folder_.path() + "/pipewire.log");
    return waitFor([&socket] { return acceptsConnections(socket); });
}

bool PipeWireSession::startSessionManager()
{
    if (!tools::writeSessionManagerConfig(folder_.path())) return false;
    sessionManager_ = ChildProcess({"wireplumber"}, folder_.path() + "/wireplumber.log");
    return waitFor(isSessionManagerReady);
}

void PipeWireSession::killDaemon()
{
    sessionManager_.end(SIGKILL);
    pipeWire_.end(SIGKILL);
}

std::string PipeWireSession::dump(const std::string& remote)
{
    const TemporaryFolder output;
    // Without its errors: warnings would not be JSON.
    std::vector<std::string> arguments = {"sh", "-c", "exec pw-dump \"$@\" 2>/dev/null", "pw-dump"};
    if (!remote.empty()) arguments.insert(arguments.end(), {"--remote", remote});
    ChildProcess dump(arguments, output.path() + "/dump");
    dump.waitForExit();
    return readFile(output.path() + "/dump");
}

std::vector<PipeWireSession::Object> PipeWireSession::objects(const std::string& remote)
{
    const auto parsed = nlohmann::json::parse(dump(remote), nullptr, false);
    std::vector<Object> objects;
    if (parsed.is_array())
        std::transform(parsed.begin(), parsed.end(), std::back_inserter(objects), parseObject);
    return objects;
}

std::optional<PipeWireSession::Object> PipeWireSession::node(const std::string& name,
                                                             const std::string& remote)
{
    for (Object& object : objects(remote))
        if (object.type == "Node" && object.properties["node.name"] == name) return std::move(object);
    return std::nullopt;
}

}  // namespace pavo::test
