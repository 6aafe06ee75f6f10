#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionProperties.h"
#include "Platform/CoreMediaIO/CMIOExtensionStream.h"
#include "Platform/Foundation/NSError.h"
#include "Platform/Foundation/NSUUID.h"

#include <memory>
#include <optional>
#include <string_view>

namespace cmio {

// What the framework asks about a device. Called on the provider's client queue.
class ExtensionDeviceSource {
public:
    virtual ExtensionPropertySet availableProperties() const = 0;
    virtual std::optional<ExtensionDeviceProperties> deviceProperties(const ExtensionPropertySet& properties,
                                                                      ns::Error* error) = 0;
    virtual bool setDeviceProperties(const ExtensionDeviceProperties& properties, ns::Error* error) = 0;

protected:
    ~ExtensionDeviceSource() = default;
};

// One camera. Keeps its streams; keeps its source weakly.
class ExtensionDevice final {
public:
    struct Impl;

    // `deviceID` and `legacyDeviceID` must be the same from run to run: clients find the camera again by
    // them.
    static std::shared_ptr<ExtensionDevice> create(std::string_view localizedName, const ns::UUID& deviceID,
                                                   std::string_view legacyDeviceID,
                                                   std::weak_ptr<ExtensionDeviceSource> source);
    explicit ExtensionDevice(std::unique_ptr<Impl> impl);
    ~ExtensionDevice();

    // False, with `error` filled, for a null stream or one that was added before.
    bool addStream(const std::shared_ptr<ExtensionStream>& stream, ns::Error* error);

    Impl& impl() { return *impl_; }

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace cmio
