#include "CMIOExtensionSupport/EntryPoint.h"

#include "CMIOExtensionSupport/ProviderSource.h"
#include "Platform/CoreMediaIO/CMIOExtensionProvider.h"
#include "Platform/Support/Fatal.h"

namespace pavo {

std::shared_ptr<EntryPoint> EntryPoint::create()
{
    return std::shared_ptr<EntryPoint>(new EntryPoint);
}

EntryPoint::EntryPoint() : providerSource_(ProviderSource::create(nullptr)) {}

EntryPoint::~EntryPoint() = default;

void EntryPoint::start()
{
    const auto& provider = providerSource_->provider();
    require(provider != nullptr, "The provider source has no provider");
    cmio::ExtensionProvider::startServiceWithProvider(provider);
}

void EntryPoint::stop() {}

}  // namespace pavo
