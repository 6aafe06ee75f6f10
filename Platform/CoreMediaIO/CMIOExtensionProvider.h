#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionClient.h"
#include "Platform/CoreMediaIO/CMIOExtensionDevice.h"
#include "Platform/CoreMediaIO/CMIOExtensionProperties.h"
#include "Platform/Foundation/NSError.h"

#include <dispatch/dispatch.h>

#include <memory>
#include <optional>

namespace cmio {

// What the framework asks about the provider as a whole. Called on the provider's client queue.
// `error` is for a method that returns failure; it may be null.
class ExtensionProviderSource {
public:
    virtual bool connectClient(const ExtensionClient& client, ns::Error* error) = 0;
    virtual void disconnectClient(const ExtensionClient& client) = 0;
    virtual ExtensionPropertySet availableProperties() const = 0;
    virtual std::optional<ExtensionProviderProperties>
    providerProperties(const ExtensionPropertySet& properties, ns::Error* error) = 0;
    virtual bool setProviderProperties(const ExtensionProviderProperties& properties, ns::Error* error) = 0;

protected:
    ~ExtensionProviderSource() = default;
};

// The root of what the process publishes: holds devices, which hold streams. One per process.
//
// Ownership: keeps its devices; keeps its source weakly, so the source's owner must keep that.
// Threads:   calls every source below it on the client queue, one call at a time.
class ExtensionProvider final {
public:
    struct Impl;

    // `clientQueue` may be null: the framework then makes a serial queue of its own. `source` need not be
    // fully constructed yet; it is not called before startService.
    static std::shared_ptr<ExtensionProvider> create(std::weak_ptr<ExtensionProviderSource> source,
                                                     dispatch_queue_t clientQueue);
    explicit ExtensionProvider(std::unique_ptr<Impl> impl);
    ~ExtensionProvider();

    // False, with `error` filled, for a null device or one that was added before.
    bool addDevice(const std::shared_ptr<ExtensionDevice>& device, ns::Error* error);

    // Publishes the provider to the system and returns; the sources are called from then on. The process
    // must go on running. Further calls do nothing.
    static void startServiceWithProvider(const std::shared_ptr<ExtensionProvider>& provider);

    Impl& impl() { return *impl_; }

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace cmio
