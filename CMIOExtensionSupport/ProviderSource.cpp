#include "CMIOExtensionSupport/ProviderSource.h"

#include "CMIOExtensionSupport/UnexpectedError.h"
#include "CMIOExtensionSupport/VideoDeviceSource.h"
#include "Platform/Support/Fatal.h"

#include <string>

namespace pavo {

std::shared_ptr<ProviderSource> ProviderSource::create(dispatch_queue_t clientQueue)
{
    const std::shared_ptr<ProviderSource> source(new ProviderSource);
    source->buildProvider(clientQueue);
    return source;
}

ProviderSource::ProviderSource() = default;
ProviderSource::~ProviderSource() = default;

void ProviderSource::buildProvider(dispatch_queue_t clientQueue)
{
    provider_ = cmio::ExtensionProvider::create(weak_from_this(), clientQueue);
    videoDeviceSource_ = VideoDeviceSource::create();
    ns::Error error;
    if (!provider_->addDevice(videoDeviceSource_->device(), &error))
        unexpectedError(error, {"CMIOExtensionSupport/ProviderSource", 23});
}

const std::shared_ptr<VideoFrameServiceClient>& ProviderSource::frameClient() const
{
    require(videoDeviceSource_ != nullptr, "The provider source has no device source");
    return videoDeviceSource_->frameClient();
}

bool ProviderSource::connectClient(const cmio::ExtensionClient&, ns::Error*)
{
    return true;
}

void ProviderSource::disconnectClient(const cmio::ExtensionClient&) {}

cmio::ExtensionPropertySet ProviderSource::availableProperties() const
{
    return {std::string(cmio::CMIOExtensionPropertyProviderManufacturer)};
}

std::optional<cmio::ExtensionProviderProperties>
ProviderSource::providerProperties(const cmio::ExtensionPropertySet& properties, ns::Error*)
{
    cmio::ExtensionProviderProperties answer(cmio::ExtensionProperties::Dictionary{});
    if (properties.contains(cmio::CMIOExtensionPropertyProviderManufacturer))
        answer.setManufacturer(kManufacturer);
    return answer;
}

bool ProviderSource::setProviderProperties(const cmio::ExtensionProviderProperties&, ns::Error*)
{
    return true;
}

}  // namespace pavo
