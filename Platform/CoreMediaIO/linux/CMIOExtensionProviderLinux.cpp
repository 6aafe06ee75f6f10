#include "Platform/CoreMediaIO/linux/CMIOExtensionImpl.h"
#include "Platform/CoreMediaIO/linux/CameraService.h"
#include "Platform/Support/Fatal.h"

#include <atomic>
#include <utility>

namespace cmio {

namespace {

std::atomic<bool> isProviderAlive = false;

}  // namespace

std::shared_ptr<ExtensionProvider> ExtensionProvider::create(std::weak_ptr<ExtensionProviderSource> source,
                                                             dispatch_queue_t clientQueue)
{
    auto queue = clientQueue ? dispatch::Queue::retain(clientQueue)
                             : dispatch::Queue::serial("com.tarnwell.macos.cam.platform.clients");
    std::unique_ptr<Impl> impl(new Impl{std::move(source), std::move(queue), {}, nullptr});
    return std::make_shared<ExtensionProvider>(std::move(impl));
}

ExtensionProvider::ExtensionProvider(std::unique_ptr<Impl> impl) : impl_(std::move(impl))
{
    pavo::require(!isProviderAlive.exchange(true), "There should be only one CMIOProvider per extension.");
}

ExtensionProvider::~ExtensionProvider()
{
    if (impl_->service) impl_->service->stop();
    isProviderAlive = false;
}

bool ExtensionProvider::addDevice(const std::shared_ptr<ExtensionDevice>& device, ns::Error* error)
{
    return addOnce(impl_->devices, device, error);
}

void ExtensionProvider::startServiceWithProvider(const std::shared_ptr<ExtensionProvider>& provider)
{
    pavo::require(provider != nullptr, "There must be a provider to start");
    Impl& impl = provider->impl();
    if (impl.service) return;
    impl.service = CameraService::start(impl.source, impl.clientQueue, impl.devices);
}

}  // namespace cmio
