#pragma once

#include <CoreMedia/CoreMedia.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace cmio {

inline constexpr std::string_view CMIOExtensionPropertyProviderManufacturer =
    "CMIOExtensionPropertyProviderManufacturer";
inline constexpr std::string_view CMIOExtensionPropertyDeviceModel = "CMIOExtensionPropertyDeviceModel";
inline constexpr std::string_view CMIOExtensionPropertyDeviceTransportType =
    "CMIOExtensionPropertyDeviceTransportType";
inline constexpr std::string_view CMIOExtensionPropertyDeviceCanBeDefaultInputDevice =
    "CMIOExtensionPropertyDeviceCanBeDefaultInputDevice";
inline constexpr std::string_view CMIOExtensionPropertyStreamActiveFormatIndex =
    "CMIOExtensionPropertyStreamActiveFormatIndex";
inline constexpr std::string_view CMIOExtensionPropertyStreamFrameDuration =
    "CMIOExtensionPropertyStreamFrameDuration";

// Property keys that a client asks for. Keys are compared as strings; unknown ones may be among them.
using ExtensionPropertySet = std::set<std::string, std::less<>>;

// The value of one property.
struct ExtensionPropertyState {
    std::variant<bool, std::uint32_t, std::string, CMTime> value;
};

// Answers to a property query: one state per key that has a value. The base of the three classes below,
// each of which names the properties of its kind.
class ExtensionProperties {
public:
    using Dictionary = std::map<std::string, ExtensionPropertyState, std::less<>>;

    explicit ExtensionProperties(Dictionary dictionary) : dictionary_(std::move(dictionary)) {}

    void setPropertyState(ExtensionPropertyState state, std::string_view property)
    {
        dictionary_.insert_or_assign(std::string(property), std::move(state));
    }
    const Dictionary& propertiesDictionary() const { return dictionary_; }

protected:
    template <typename Value>
    std::optional<Value> get(std::string_view property) const
    {
        const auto found = dictionary_.find(property);
        if (found == dictionary_.end()) return std::nullopt;
        const auto* value = std::get_if<Value>(&found->second.value);
        return value ? std::optional<Value>(*value) : std::nullopt;
    }

private:
    Dictionary dictionary_;
};

class ExtensionProviderProperties final : public ExtensionProperties {
public:
    using ExtensionProperties::ExtensionProperties;

    std::optional<std::string> manufacturer() const
    {
        return get<std::string>(CMIOExtensionPropertyProviderManufacturer);
    }
    void setManufacturer(std::string_view manufacturer)
    {
        setPropertyState({std::string(manufacturer)}, CMIOExtensionPropertyProviderManufacturer);
    }
};

class ExtensionDeviceProperties final : public ExtensionProperties {
public:
    using ExtensionProperties::ExtensionProperties;

    std::optional<std::string> model() const { return get<std::string>(CMIOExtensionPropertyDeviceModel); }
    void setModel(std::string_view model)
    {
        setPropertyState({std::string(model)}, CMIOExtensionPropertyDeviceModel);
    }
    // A four-character code, as of kIOAudioDeviceTransportType…
    std::optional<std::uint32_t> transportType() const
    {
        return get<std::uint32_t>(CMIOExtensionPropertyDeviceTransportType);
    }
    void setTransportType(std::uint32_t transportType)
    {
        setPropertyState({transportType}, CMIOExtensionPropertyDeviceTransportType);
    }
};

class ExtensionStreamProperties final : public ExtensionProperties {
public:
    using ExtensionProperties::ExtensionProperties;

    std::optional<std::uint32_t> activeFormatIndex() const
    {
        return get<std::uint32_t>(CMIOExtensionPropertyStreamActiveFormatIndex);
    }
    void setActiveFormatIndex(std::uint32_t index)
    {
        setPropertyState({index}, CMIOExtensionPropertyStreamActiveFormatIndex);
    }
    std::optional<CMTime> frameDuration() const
    {
        return get<CMTime>(CMIOExtensionPropertyStreamFrameDuration);
    }
    void setFrameDuration(CMTime duration)
    {
        setPropertyState({duration}, CMIOExtensionPropertyStreamFrameDuration);
    }
};

}  // namespace cmio
