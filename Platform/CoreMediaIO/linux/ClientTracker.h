#pragma once

#include "Platform/CoreMediaIO/linux/CameraReport.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

struct pw_core;
struct pw_registry;

namespace cmio {

struct RegistryEvents;

// Knows which processes have a link to a camera node, from what the PipeWire server publishes: a link leads
// to the client's node, that to the client, and the server knows the client's process. For clients that
// reached PipeWire through a portal the server knows only the portal's; their own word is taken.
//
// Threads: everything with the loop's lock held; the callback runs on the loop.
class ClientTracker final {
public:
    // `onChange`: an answer may have changed. It must not destroy the tracker.
    ClientTracker(pw_core* core, std::function<void()> onChange);
    ~ClientTracker();
    ClientTracker(const ClientTracker&) = delete;
    ClientTracker& operator=(const ClientTracker&) = delete;

    // Processes that are linked to the output of that node.
    std::set<std::int32_t> processesOf(std::uint32_t nodeId) const;
    // The same processes, with what the server knows of each: programs are called what they say.
    std::vector<ClientReport> clientsOf(std::uint32_t nodeId) const;
    // Cuts the links that the process has to that node.
    void unlink(std::uint32_t nodeId, std::int32_t process);

private:
    friend struct RegistryEvents;
    struct BoundClient;
    struct Link {
        std::uint32_t outputNode;
        std::uint32_t inputNode;
        std::chrono::steady_clock::time_point since;
    };

    // Null while it is not known.
    const BoundClient* clientOf(const Link& link) const;
    // 0 while not all of it is known.
    std::int32_t processOf(const Link& link) const;

    const std::function<void()> onChange_;
    pw_registry* registry_;
    std::unique_ptr<RegistryEvents> events_;
    std::map<std::uint32_t, std::unique_ptr<BoundClient>> clients_;
    std::map<std::uint32_t, std::uint32_t> clientOfNode_;
    std::map<std::uint32_t, Link> links_;
};

}  // namespace cmio
