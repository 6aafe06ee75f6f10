#include "Tools/DemoSession.h"

#include "Tools/CameraClient.h"
#include "Tools/SessionManagerConfig.h"
#include "Tools/StopSignal.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace pavo::tools {
namespace {

// Whether somebody listens on a Unix socket.
bool answers(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return socket.isValid() &&
           ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

bool waitUntilAnswers(const std::string& path)
{
    const std::int64_t until = monotonicNs() + 10'000'000'000;
    while (!answers(path)) {
        if (monotonicNs() > until) return false;
        constexpr int kPauseMs = 20;
        ::poll(nullptr, 0, kPauseMs);
    }
    return true;
}

// A daemon that runs and has no camera like ours: two of one name could not be told apart.
bool isRunningDaemonUsable()
{
    const char* folder = std::getenv("PIPEWIRE_RUNTIME_DIR");
    if (!folder) folder = std::getenv("XDG_RUNTIME_DIR");
    if (!folder || !answers(std::string(folder) + "/pipewire-0")) return false;
    CameraClient::Options options;
    options.deadline = std::chrono::milliseconds(300);
    return CameraClient(std::move(options)).start().has_value();
}

bool isIsolatedPossible()
{
    return isProgramInstalled("pipewire") && isProgramInstalled("wireplumber") &&
           isProgramInstalled("dbus-daemon");
}

SessionKind choose()
{
    if (isRunningDaemonUsable()) return SessionKind::running;
    return isIsolatedPossible() ? SessionKind::isolated : SessionKind::embedded;
}

}  // namespace

Result<std::unique_ptr<DemoSession>> DemoSession::start(SessionKind kind)
{
    if (kind == SessionKind::automatic) kind = choose();
    std::string folder = (std::filesystem::temp_directory_path() / "pavo-demo-XXXXXX").string();
    if (!::mkdtemp(folder.data()))
        return Problem{"no temporary folder: " + std::string(std::strerror(errno))};
    std::unique_ptr<DemoSession> session(new DemoSession(kind, folder));
    if (kind == SessionKind::isolated && !session->startIsolated())
        return Problem{"a private PipeWire cannot be started: are pipewire, wireplumber and dbus installed?"};
    return session;
}

DemoSession::DemoSession(SessionKind kind, std::string folder) : kind_(kind), folder_(std::move(folder))
{
    // The user's own camera and producers are left alone.
    environment_ = {{"PAVO_BOOTSTRAP_DIR", folder_ + "/names"}, {"PAVO_LOG", "stderr"}};
    std::filesystem::create_directory(folder_ + "/names");
    if (kind == SessionKind::running) {
        environment_.emplace_back("PAVO_PIPEWIRE", "daemon");
        return;
    }
    environment_.emplace_back("XDG_RUNTIME_DIR", folder_);
    environment_.emplace_back("PIPEWIRE_RUNTIME_DIR", folder_);
    environment_.emplace_back("PAVO_PIPEWIRE", kind == SessionKind::embedded ? "embedded" : "daemon");
    environment_.emplace_back("PIPEWIRE_REMOTE", kind == SessionKind::embedded ? "pavo-0" : "pipewire-0");
}

DemoSession::~DemoSession()
{
    while (!daemons_.empty())
        daemons_.pop_back();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

bool DemoSession::startIsolated()
{
    Environment environment = environment_;
    const std::string bus = "unix:path=" + folder_ + "/bus";
    environment.emplace_back("DBUS_SESSION_BUS_ADDRESS", bus);
    environment.emplace_back("XDG_STATE_HOME", folder_ + "/state");
    environment.emplace_back("XDG_CONFIG_HOME", folder_ + "/config");
    const auto run = [this, &environment](std::vector<std::string> arguments) {
        ChildProcess::Options options;
        options.arguments = std::move(arguments);
        options.environment = environment;
        auto child = ChildProcess::start(std::move(options));
        if (child) daemons_.push_back(std::move(*child));
        return child.has_value();
    };
    return writeSessionManagerConfig(folder_ + "/config") &&
           run({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--address=" + bus}) &&
           waitUntilAnswers(folder_ + "/bus") && run({"pipewire"}) &&
           waitUntilAnswers(folder_ + "/pipewire-0") && run({"wireplumber"});
}

}  // namespace pavo::tools
