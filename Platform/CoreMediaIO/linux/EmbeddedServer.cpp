#include "Platform/CoreMediaIO/linux/EmbeddedServer.h"

#include "Platform/CoreMediaIO/linux/PipeWireHeaders.h"

#include <cerrno>
#include <cstring>

namespace cmio {

namespace {

// What a server for video needs. The camera's own stream needs the adapter, too, in newer PipeWires. The
// access module comes last: it judges the clients of all the others.
constexpr const char* kModules[] = {"libpipewire-module-protocol-native", "libpipewire-module-client-node",
                                    "libpipewire-module-adapter",         "libpipewire-module-link-factory",
                                    "libpipewire-module-metadata",        "libpipewire-module-access"};

}  // namespace

std::unique_ptr<EmbeddedServer> EmbeddedServer::create(PipeWireLoop& loop, std::string& problem)
{
    pw_properties* properties =
        pw_properties_new(PW_KEY_CONFIG_NAME, "null", PW_KEY_CORE_DAEMON, "true", PW_KEY_CORE_NAME, kName,
                          "link.max-buffers", "16", PipeWireLoop::kLockMemory, "false", nullptr);
    pw_context* context = pw_context_new(loop.get(), properties, 0);
    if (!context) {
        problem = std::string("no context: ") + std::strerror(errno);
        return nullptr;
    }
    std::unique_ptr<EmbeddedServer> server(new EmbeddedServer(context));
    for (const char* name : kModules) {
        if (pw_context_load_module(context, name, nullptr, nullptr)) continue;
        problem = std::string(name) + ": " +
                  (errno == EAGAIN ? "another process serves the camera" : std::strerror(errno));
        return nullptr;
    }
    server->linker_.emplace(loop, context);
    return server;
}

EmbeddedServer::EmbeddedServer(pw_context* context) : context_(context) {}

EmbeddedServer::~EmbeddedServer()
{
    linker_.reset();
    pw_context_destroy(context_);
}

}  // namespace cmio
