#include "Platform/CoreMediaIO/linux/PipeWireConnection.h"

#include "Platform/CoreMediaIO/linux/Log.h"
#include "Platform/CoreMediaIO/linux/PipeWireHeaders.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

namespace cmio {

namespace {

// A failed attempt is one connect() on a socket that is not there.
constexpr std::chrono::milliseconds kRetryInterval(500);
// While a server has just gone, or its socket has just come, it is likely to answer any moment.
constexpr std::chrono::milliseconds kPromptInterval(20);
constexpr int kPromptAttempts = 50;

}  // namespace

// The core's callbacks, and the hook that they hang on.
struct CoreEvents {
    static const pw_core_events& table()
    {
        static const pw_core_events events = [] {
            pw_core_events table{};
            table.version = PW_VERSION_CORE_EVENTS;
            table.error = [](void* data, std::uint32_t id, int, int result, const char* message) {
                // Others are about single objects, and those hear of them too.
                if (id != PW_ID_CORE || result != -EPIPE) return;
                os_log_printf(faceLog(), OS_LOG_TYPE_DEFAULT, "PipeWire has gone: %s", message);
                static_cast<PipeWireConnection*>(data)->serverHasGone();
            };
            return table;
        }();
        return events;
    }

    spa_hook hook{};
};

PipeWireConnection::Server PipeWireConnection::serverFromEnvironment()
{
    const char* value = std::getenv("PAVO_PIPEWIRE");
    const std::string_view wanted = value ? value : "auto";
    if (wanted == "daemon") return Server::daemon;
    if (wanted == "embedded") return Server::embedded;
    if (wanted != "auto")
        os_log_printf(faceLog(), OS_LOG_TYPE_ERROR, "PAVO_PIPEWIRE is '%s', not auto, daemon or embedded",
                      value);
    return Server::automatic;
}

PipeWireConnection::PipeWireConnection(PipeWireLoop& loop, Server server, Callbacks callbacks)
    : loop_(loop),
      isAutomatic_(server == Server::automatic),
      server_(server),
      callbacks_(std::move(callbacks)),
      connect_(loop, [this] { connect(); }),
      lose_(loop, [this] { lose(); }),
      move_(loop, [this] { moveToDaemon(); }),
      watcher_(loop, [this] { socketAppeared(); }),
      events_(std::make_unique<CoreEvents>())
{
    connect_.schedule();
}

PipeWireConnection::~PipeWireConnection()
{
    disconnectCore();
    embedded_.reset();
    if (daemonContext_) pw_context_destroy(daemonContext_);
}

PipeWireState PipeWireConnection::state() const
{
    if (!core_) return PipeWireState::waiting;
    return server_ == Server::daemon ? PipeWireState::daemon : PipeWireState::embedded;
}

void PipeWireConnection::restart()
{
    lose_.schedule();
}

void PipeWireConnection::setInUse(bool isInUse)
{
    isInUse_ = isInUse;
    if (isDaemonExpected_ && !isInUse) move_.schedule();
}

void PipeWireConnection::connect()
{
    if (core_) return;
    // Before we look, or a daemon that comes in between would be missed.
    if (server_ != Server::embedded || isAutomatic_) watcher_.start();
    pw_core* core = server_ == Server::embedded ? nullptr : connectToDaemon();
    if (server_ == Server::automatic) server_ = core ? Server::daemon : Server::embedded;
    if (server_ == Server::embedded) core = connectToOurselves();
    if (core)
        use(core);
    else
        connect_.scheduleAfter(nextDelay());
}

pw_core* PipeWireConnection::connectToDaemon()
{
    if (!daemonContext_)
        daemonContext_ =
            pw_context_new(loop_.get(), pw_properties_new(PipeWireLoop::kLockMemory, "false", nullptr), 0);
    pw_core* core = daemonContext_ ? pw_context_connect(daemonContext_, nullptr, 0) : nullptr;
    if (!core) report(std::string("No PipeWire daemon: ") + std::strerror(errno));
    return core;
}

pw_core* PipeWireConnection::connectToOurselves()
{
    std::string problem;
    if (!embedded_) embedded_ = EmbeddedServer::create(loop_, problem);
    pw_core* core = embedded_ ? pw_context_connect_self(embedded_->context(), nullptr, 0) : nullptr;
    if (!core) report("No PipeWire server of our own: " + (embedded_ ? std::strerror(errno) : problem));
    return core;
}

void PipeWireConnection::use(pw_core* core)
{
    core_ = core;
    // With a daemon there is nothing left to wait for.
    if (server_ == Server::daemon) watcher_.stop();
    promptAttempts_ = 0;
    os_log_printf(faceLog(), OS_LOG_TYPE_DEFAULT, "Connected to PipeWire (%s)",
                  server_ == Server::daemon ? "daemon" : EmbeddedServer::kName);
    reportedProblem_.clear();
    pw_core_add_listener(core_, &events_->hook, &CoreEvents::table(), this);
    callbacks_.connected(core_);
}

void PipeWireConnection::socketAppeared()
{
    promptAttempts_ = kPromptAttempts;
    if (server_ == Server::daemon) {
        connect_.schedule();
        return;
    }
    isDaemonExpected_ = true;
    move_.schedule();
}

void PipeWireConnection::moveToDaemon()
{
    if (!isDaemonExpected_ || isInUse_) return;
    pw_core* daemon = connectToDaemon();
    if (!daemon) {
        // A socket that nobody answers on was left behind; what comes next is a new one.
        isDaemonExpected_ = promptAttempts_ > 0;
        if (isDaemonExpected_) move_.scheduleAfter(nextDelay());
        return;
    }
    isDaemonExpected_ = false;
    if (core_) callbacks_.lost();
    disconnectCore();
    embedded_.reset();
    server_ = Server::daemon;
    use(daemon);
}

void PipeWireConnection::serverHasGone()
{
    promptAttempts_ = kPromptAttempts;
    restart();
}

void PipeWireConnection::lose()
{
    if (!core_) return;
    callbacks_.lost();
    disconnectCore();
    connect_.scheduleAfter(nextDelay());
}

std::chrono::milliseconds PipeWireConnection::nextDelay()
{
    if (promptAttempts_ == 0) return kRetryInterval;
    --promptAttempts_;
    return kPromptInterval;
}

void PipeWireConnection::disconnectCore()
{
    if (!core_) return;
    spa_hook_remove(&events_->hook);
    pw_core_disconnect(std::exchange(core_, nullptr));
}

void PipeWireConnection::report(const std::string& problem)
{
    if (std::exchange(reportedProblem_, problem) == problem) return;
    os_log_printf(faceLog(), OS_LOG_TYPE_DEFAULT, "%s", problem.c_str());
}

}  // namespace cmio
