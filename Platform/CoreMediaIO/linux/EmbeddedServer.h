#pragma once

#include "Platform/CoreMediaIO/linux/PipeWireLoop.h"
#include "Platform/CoreMediaIO/linux/SessionLinker.h"

#include <memory>
#include <optional>
#include <string>

struct pw_context;

namespace cmio {

// A PipeWire server in this process, for machines without a PipeWire daemon: clients reach the camera, and
// nothing else, under the name "pavo-0".
//
// Threads: everything with the loop's lock held.
class EmbeddedServer final {
public:
    static constexpr const char* kName = "pavo-0";

    // Null, with the reason in `problem`, when there is no such server, or another process has the name.
    static std::unique_ptr<EmbeddedServer> create(PipeWireLoop& loop, std::string& problem);
    ~EmbeddedServer();
    EmbeddedServer(const EmbeddedServer&) = delete;
    EmbeddedServer& operator=(const EmbeddedServer&) = delete;

    pw_context* context() const { return context_; }

private:
    explicit EmbeddedServer(pw_context* context);

    pw_context* context_;
    std::optional<SessionLinker> linker_;
};

}  // namespace cmio
