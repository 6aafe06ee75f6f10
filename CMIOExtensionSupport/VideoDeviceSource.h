#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionDevice.h"
#include "Platform/Foundation/NSUUID.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace pavo {

class VideoFrameServiceClient;
class VideoStreamSource;

inline constexpr std::string_view kDeviceName = "Pavo Camera";
inline constexpr std::string_view kDeviceModel = kDeviceName;
inline constexpr std::string_view kLegacyDeviceID = "Pavo";
inline constexpr std::uint32_t kTransportTypeVirtual = 0x76697274;  // 'virt'
inline constexpr bool kDeviceCanBeDefaultInput = true;

// The same from run to run, so that applications find the camera again.
const ns::UUID& deviceID();
// A second identifier of the same family; nothing reads it.
const ns::UUID& secondDeviceID();

// The one virtual camera: its fixed identity, its properties and its stream.
//
// Ownership: owned by the provider source. Keeps the device and the stream source; the device knows it
// weakly. Threads:   answers on the framework's queue from constants only. Errors:    property calls never
// fail. A device that refuses the stream ends the process.
class VideoDeviceSource final : public cmio::ExtensionDeviceSource,
                                public std::enable_shared_from_this<VideoDeviceSource> {
public:
    // Builds the device and its stream.
    static std::shared_ptr<VideoDeviceSource> create();
    ~VideoDeviceSource();

    const std::shared_ptr<cmio::ExtensionDevice>& device() const { return device_; }
    void setDevice(std::shared_ptr<cmio::ExtensionDevice> device) { device_ = std::move(device); }
    // The stream's end of the frame service.
    const std::shared_ptr<VideoFrameServiceClient>& frameClient() const;

    cmio::ExtensionPropertySet availableProperties() const override;
    std::optional<cmio::ExtensionDeviceProperties>
    deviceProperties(const cmio::ExtensionPropertySet& properties, ns::Error* error) override;
    bool setDeviceProperties(const cmio::ExtensionDeviceProperties& properties, ns::Error* error) override;

private:
    friend struct VideoDeviceSourceTestAccess;

    VideoDeviceSource();

    // Construction, once there is a shared owner that the device can refer to.
    void buildDevice();

    std::shared_ptr<cmio::ExtensionDevice> device_;
    std::shared_ptr<VideoStreamSource> streamSource_;
};

}  // namespace pavo
