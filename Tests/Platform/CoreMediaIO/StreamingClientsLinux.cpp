#include "Platform/CoreMediaIO/linux/CMIOExtensionImpl.h"
#include "Tests/Platform/CoreMediaIO/StreamingClients.h"

#include <utility>

void cmio::test::setStreamingClients(ExtensionStream& stream, std::vector<ExtensionClient> clients)
{
    stream.impl().clients.set(std::move(clients));
}
