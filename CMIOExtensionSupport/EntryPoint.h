#pragma once

#include "CMIOExtensionSupport/TWCMIOExtensionStubSupportEntryPointProtocol.h"

#include <memory>

namespace pavo {

class ProviderSource;

// What the stub creates: the root of everything that the camera is. The stub knows the class by the name
// "TWCMIOExtensionSupportEntryPoint".
//
// Ownership: keeps the provider source and with it the whole tree.
// Threads:   the stub calls it on its own thread.
// Errors:    none reach the stub. A tree that cannot be built ends the process.
class EntryPoint final : public TWCMIOExtensionStubSupportEntryPointProtocol {
public:
    // Builds the camera in memory; start publishes it.
    static std::shared_ptr<EntryPoint> create();
    ~EntryPoint();

    const std::shared_ptr<ProviderSource>& providerSource() const { return providerSource_; }

    void start() override;
    // Does nothing: the camera ends with the process.
    void stop() override;

private:
    EntryPoint();

    const std::shared_ptr<ProviderSource> providerSource_;
};

}  // namespace pavo
