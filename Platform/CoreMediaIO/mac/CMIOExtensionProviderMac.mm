#include "Platform/CoreMediaIO/CMIOExtensionProvider.h"

#include "Platform/CoreMediaIO/mac/CMIOExtensionImpl.h"
#include "Platform/CoreMediaIO/mac/CMIOSourceAdapters.h"
#include "Platform/Foundation/mac/NSConversions.h"

#include <utility>

namespace cmio {

std::shared_ptr<ExtensionProvider> ExtensionProvider::create(std::weak_ptr<ExtensionProviderSource> source,
                                                             dispatch_queue_t clientQueue)
{
    const auto object = sourceFactories.makeProviderSource({std::move(source)});
    CMIOExtensionProvider* const provider = [[CMIOExtensionProvider alloc] initWithSource:object
                                                                              clientQueue:clientQueue];
    return std::make_shared<ExtensionProvider>(std::make_unique<Impl>(object, provider));
}

ExtensionProvider::ExtensionProvider(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

ExtensionProvider::~ExtensionProvider() = default;

bool ExtensionProvider::addDevice(const std::shared_ptr<ExtensionDevice>& device, ns::Error* error)
{
    NSError* reason = nil;
    const bool isAdded = [impl_->provider addDevice:device ? device->impl().device : nil error:&reason];
    if (!isAdded) ns::store(reason, error);
    return isAdded;
}

void ExtensionProvider::startServiceWithProvider(const std::shared_ptr<ExtensionProvider>& provider)
{
    [CMIOExtensionProvider startServiceWithProvider:provider->impl().provider];
}

}  // namespace cmio
