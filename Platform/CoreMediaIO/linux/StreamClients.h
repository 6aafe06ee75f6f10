#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionProvider.h"
#include "Platform/CoreMediaIO/CMIOExtensionStream.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>

namespace cmio {

// Turns "these processes are linked to the camera" into the calls that the platform makes to its sources.
//
// A process that comes is connected and asked about; the first one that is let in starts the stream, and only
// then counts as streaming. The last one stops the stream first, and only then ceases to count.
//
// Threads: the client queue.
// Errors:  a process that a source turns away is logged and refused, and not asked about again while it is
//            there.
class StreamClients final {
public:
    // `refuse` takes a process's frames away.
    StreamClients(std::weak_ptr<ExtensionProviderSource> provider, std::shared_ptr<ExtensionStream> stream,
                  std::function<void(std::int32_t process)> refuse);

    void setProcesses(const std::set<std::int32_t>& processes);

private:
    struct Client {
        ExtensionClient client;
        bool isConnected = false;
        bool isStreaming = false;
    };

    void add(std::int32_t process);
    // Null when the client is let in, else what turned it away.
    const char* admit(Client& client);
    void remove(Client& client);
    void publish();
    bool isAnyoneStreaming() const;

    const std::weak_ptr<ExtensionProviderSource> provider_;
    const std::shared_ptr<ExtensionStream> stream_;
    const std::function<void(std::int32_t)> refuse_;
    std::map<std::int32_t, Client> clients_;
    std::vector<std::int32_t> order_;  // as they came
};

}  // namespace cmio
