#include "Platform/CoreMediaIO/CMIOExtensionDevice.h"

#include "Platform/CoreMediaIO/mac/CMIOExtensionImpl.h"
#include "Platform/CoreMediaIO/mac/CMIOSourceAdapters.h"
#include "Platform/Foundation/mac/NSConversions.h"

#include <utility>

namespace cmio {

std::shared_ptr<ExtensionDevice> ExtensionDevice::create(std::string_view localizedName,
                                                         const ns::UUID& deviceID,
                                                         std::string_view legacyDeviceID,
                                                         std::weak_ptr<ExtensionDeviceSource> source)
{
    const auto object = sourceFactories.makeDeviceSource({std::move(source)});
    CMIOExtensionDevice* const device =
        [[CMIOExtensionDevice alloc] initWithLocalizedName:ns::toObject(localizedName)
                                                  deviceID:ns::toObject(deviceID)
                                            legacyDeviceID:ns::toObject(legacyDeviceID)
                                                    source:object];
    return std::make_shared<ExtensionDevice>(std::make_unique<Impl>(object, device));
}

ExtensionDevice::ExtensionDevice(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

ExtensionDevice::~ExtensionDevice() = default;

bool ExtensionDevice::addStream(const std::shared_ptr<ExtensionStream>& stream, ns::Error* error)
{
    NSError* reason = nil;
    const bool isAdded = [impl_->device addStream:stream ? stream->impl().stream : nil error:&reason];
    if (!isAdded) ns::store(reason, error);
    return isAdded;
}

}  // namespace cmio
