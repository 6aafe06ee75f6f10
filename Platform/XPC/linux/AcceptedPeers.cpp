#include "Platform/XPC/linux/AcceptedPeers.h"

#include "Platform/XPC/linux/XPCListenerEndpointLinux.h"

#include <servers/bootstrap_private.h>

#include <utility>

namespace xpc {

AcceptedPeers& AcceptedPeers::shared()
{
    static auto& peers = *new AcceptedPeers;
    return peers;
}

void AcceptedPeers::add(std::weak_ptr<ListeningPort> port, std::weak_ptr<Connection> connection)
{
    const std::lock_guard lock(mutex_);
    std::erase_if(entries_, [](const Entry& entry) { return entry.connection.expired(); });
    entries_.push_back({std::move(port), std::move(connection), std::chrono::steady_clock::now()});
}

std::vector<AcceptedPeers::Peer> AcceptedPeers::connected() const
{
    std::vector<Entry> entries;
    {
        const std::lock_guard lock(mutex_);
        entries = entries_;
    }
    std::vector<Peer> peers;
    for (const Entry& entry : entries) {
        // Without the lock: this may be what lets go of the connection, and that may run any code.
        const auto connection = entry.connection.lock();
        const std::int32_t process = connection ? connection->processIdentifier() : 0;
        if (process == 0) continue;
        name_t service{};
        if (const auto port = entry.port.lock()) bootstrap_name_of(port->name(), service);
        peers.push_back({service, process, entry.since});
    }
    return peers;
}

}  // namespace xpc
