#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionStream.h"

#include <vector>

namespace cmio::test {

// What the system does as clients come and go. Each system's tests have their own.
void setStreamingClients(ExtensionStream& stream, std::vector<ExtensionClient> clients);

}  // namespace cmio::test
