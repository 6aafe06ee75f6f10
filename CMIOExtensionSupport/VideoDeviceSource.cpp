#include "CMIOExtensionSupport/VideoDeviceSource.h"

#include "CMIOExtensionSupport/UnexpectedError.h"
#include "CMIOExtensionSupport/VideoStreamSource.h"
#include "Platform/Support/Fatal.h"

#include <string>

namespace pavo {

namespace {

ns::UUID requireUUID(std::string_view text)
{
    const auto uuid = ns::UUID::withString(text);
    require(uuid.has_value(), "A UUID constant is malformed");
    return *uuid;
}

}  // namespace

const ns::UUID& deviceID()
{
    static const ns::UUID uuid = requireUUID("6CED8472-EA28-42FE-8359-2F441C1C12B5");
    return uuid;
}

const ns::UUID& secondDeviceID()
{
    static const ns::UUID uuid = requireUUID("7C842570-F1FB-4338-90F7-F43A2B008F43");
    return uuid;
}

std::shared_ptr<VideoDeviceSource> VideoDeviceSource::create()
{
    const std::shared_ptr<VideoDeviceSource> source(new VideoDeviceSource);
    source->buildDevice();
    return source;
}

VideoDeviceSource::VideoDeviceSource() = default;
VideoDeviceSource::~VideoDeviceSource() = default;

void VideoDeviceSource::buildDevice()
{
    device_ = cmio::ExtensionDevice::create(kDeviceName, deviceID(), kLegacyDeviceID, weak_from_this());
    streamSource_ = VideoStreamSource::create();
    ns::Error error;
    if (!device_->addStream(streamSource_->stream(), &error))
        unexpectedError(error, {"CMIOExtensionSupport/VideoDeviceSource", 25});
}

const std::shared_ptr<VideoFrameServiceClient>& VideoDeviceSource::frameClient() const
{
    require(streamSource_ != nullptr, "The device source has no stream source");
    return streamSource_->frameClient();
}

cmio::ExtensionPropertySet VideoDeviceSource::availableProperties() const
{
    return {std::string(cmio::CMIOExtensionPropertyDeviceTransportType),
            std::string(cmio::CMIOExtensionPropertyDeviceModel),
            std::string(cmio::CMIOExtensionPropertyDeviceCanBeDefaultInputDevice)};
}

std::optional<cmio::ExtensionDeviceProperties>
VideoDeviceSource::deviceProperties(const cmio::ExtensionPropertySet& properties, ns::Error*)
{
    cmio::ExtensionDeviceProperties answer(cmio::ExtensionProperties::Dictionary{});
    if (properties.contains(cmio::CMIOExtensionPropertyDeviceTransportType))
        answer.setTransportType(kTransportTypeVirtual);
    if (properties.contains(cmio::CMIOExtensionPropertyDeviceModel)) answer.setModel(kDeviceModel);
    if (properties.contains(cmio::CMIOExtensionPropertyDeviceCanBeDefaultInputDevice))
        answer.setPropertyState({kDeviceCanBeDefaultInput},
                                cmio::CMIOExtensionPropertyDeviceCanBeDefaultInputDevice);
    return answer;
}

bool VideoDeviceSource::setDeviceProperties(const cmio::ExtensionDeviceProperties&, ns::Error*)
{
    return true;
}

}  // namespace pavo
