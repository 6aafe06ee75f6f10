#pragma once

#include "Platform/XPC/XPCConnection.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace xpc {

class ListeningPort;

// The peers that listeners of this process have let in: for those who ask how the process is.
//
// Ownership: knows listeners and connections weakly.
// Threads:   any.
class AcceptedPeers final {
public:
    struct Peer {
        std::string service;  // the name of its listener; empty where that has none, or is gone
        std::int32_t process = 0;
        std::chrono::steady_clock::time_point since;
    };

    // Never destroyed: connections are accepted until the very end of the process.
    static AcceptedPeers& shared();

    void add(std::weak_ptr<ListeningPort> port, std::weak_ptr<Connection> connection);
    // Those that are connected now, the latest one last.
    std::vector<Peer> connected() const;

private:
    struct Entry {
        std::weak_ptr<ListeningPort> port;
        std::weak_ptr<Connection> connection;
        std::chrono::steady_clock::time_point since;
    };

    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
};

}  // namespace xpc
