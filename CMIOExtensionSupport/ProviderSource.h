#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionProvider.h"

#include <dispatch/dispatch.h>

#include <memory>
#include <optional>
#include <string_view>

namespace pavo {

class VideoDeviceSource;
class VideoFrameServiceClient;

inline constexpr std::string_view kManufacturer = "Tarnwell";

// What the framework asks about the provider as a whole. Builds the provider and the one device below it.
//
// Ownership: owned by the entry point. Keeps the provider, which knows it weakly, and the device source.
// Threads:   answers on the framework's queue from constants only.
// Errors:    every client is welcome and property calls never fail. A provider that refuses the device ends
//            the process.
class ProviderSource final : public cmio::ExtensionProviderSource,
                             public std::enable_shared_from_this<ProviderSource> {
public:
    // Builds the provider, its device and its stream. Without a queue the framework calls on one of its own.
    static std::shared_ptr<ProviderSource> create(dispatch_queue_t clientQueue);
    ~ProviderSource();

    const std::shared_ptr<cmio::ExtensionProvider>& provider() const { return provider_; }
    void setProvider(std::shared_ptr<cmio::ExtensionProvider> provider) { provider_ = std::move(provider); }
    const std::shared_ptr<VideoDeviceSource>& videoDeviceSource() const { return videoDeviceSource_; }
    // The stream's end of the frame service.
    const std::shared_ptr<VideoFrameServiceClient>& frameClient() const;

    bool connectClient(const cmio::ExtensionClient& client, ns::Error* error) override;
    void disconnectClient(const cmio::ExtensionClient& client) override;
    cmio::ExtensionPropertySet availableProperties() const override;
    std::optional<cmio::ExtensionProviderProperties>
    providerProperties(const cmio::ExtensionPropertySet& properties, ns::Error* error) override;
    bool setProviderProperties(const cmio::ExtensionProviderProperties& properties,
                               ns::Error* error) override;

private:
    friend struct ProviderSourceTestAccess;

    ProviderSource();

    // Construction, once there is a shared owner that the provider can refer to.
    void buildProvider(dispatch_queue_t clientQueue);

    std::shared_ptr<cmio::ExtensionProvider> provider_;
    std::shared_ptr<VideoDeviceSource> videoDeviceSource_;
};

}  // namespace pavo
