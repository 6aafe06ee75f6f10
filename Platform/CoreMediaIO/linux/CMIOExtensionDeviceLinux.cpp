#include "Platform/CoreMediaIO/linux/CMIOExtensionImpl.h"

#include <utility>

namespace cmio {

std::shared_ptr<ExtensionDevice> ExtensionDevice::create(std::string_view localizedName,
                                                         const ns::UUID& deviceID,
                                                         std::string_view legacyDeviceID,
                                                         std::weak_ptr<ExtensionDeviceSource> source)
{
    std::unique_ptr<Impl> impl(
        new Impl{std::string(localizedName), deviceID, std::string(legacyDeviceID), std::move(source), {}});
    return std::make_shared<ExtensionDevice>(std::move(impl));
}

ExtensionDevice::ExtensionDevice(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

ExtensionDevice::~ExtensionDevice() = default;

bool ExtensionDevice::addStream(const std::shared_ptr<ExtensionStream>& stream, ns::Error* error)
{
    return addOnce(impl_->streams, stream, error);
}

}  // namespace cmio
