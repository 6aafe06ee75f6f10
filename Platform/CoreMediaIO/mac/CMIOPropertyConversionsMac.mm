#include "Platform/CoreMediaIO/mac/CMIOConversions.h"
#include "Platform/Foundation/mac/NSConversions.h"

namespace cmio {

namespace {

using Value = decltype(ExtensionPropertyState::value);

// Readers of the values that the framework passes on; none where the object is of another class.
std::optional<Value> readBool(id object)
{
    if (![object isKindOfClass:[NSNumber class]]) return std::nullopt;
    return Value(static_cast<NSNumber*>(object).boolValue != NO);
}

std::optional<Value> readNumber(id object)
{
    if (![object isKindOfClass:[NSNumber class]]) return std::nullopt;
    return Value(std::uint32_t{static_cast<NSNumber*>(object).unsignedIntValue});
}

std::optional<Value> readText(id object)
{
    if (![object isKindOfClass:[NSString class]]) return std::nullopt;
    return Value(ns::toText(object));
}

std::optional<Value> readTime(id object)
{
    if (![object isKindOfClass:[NSDictionary class]]) return std::nullopt;
    return Value(CMTimeMakeFromDictionary((__bridge CFDictionaryRef)object));
}

// The face's name of a property, and the framework's, whose text is the framework's affair.
struct Property {
    std::string_view name;
    CMIOExtensionProperty const __strong* key;
    std::optional<Value> (*read)(id object);
};

constexpr Property kProperties[] = {
    {CMIOExtensionPropertyProviderManufacturer, &::CMIOExtensionPropertyProviderManufacturer, readText},
    {CMIOExtensionPropertyDeviceModel, &::CMIOExtensionPropertyDeviceModel, readText},
    {CMIOExtensionPropertyDeviceTransportType, &::CMIOExtensionPropertyDeviceTransportType, readNumber},
    {CMIOExtensionPropertyDeviceCanBeDefaultInputDevice,
     &::CMIOExtensionPropertyDeviceCanBeDefaultInputDevice, readBool},
    {CMIOExtensionPropertyStreamActiveFormatIndex, &::CMIOExtensionPropertyStreamActiveFormatIndex,
     readNumber},
    {CMIOExtensionPropertyStreamFrameDuration, &::CMIOExtensionPropertyStreamFrameDuration, readTime},
};

CMIOExtensionProperty keyOf(std::string_view name)
{
    for (const auto& property : kProperties)
        if (property.name == name) return *property.key;
    return ns::toObject(name);
}

const Property* propertyOf(CMIOExtensionProperty key)
{
    for (const auto& property : kProperties)
        if ([*property.key isEqualToString:key]) return &property;
    return nullptr;
}

// Writes a value as the object that the framework expects for it.
struct ObjectOf {
    id operator()(bool value) const { return [NSNumber numberWithBool:value]; }
    id operator()(std::uint32_t value) const { return [NSNumber numberWithUnsignedInt:value]; }
    id operator()(const std::string& value) const { return ns::toObject(value); }
    id operator()(CMTime value) const { return toObject(value); }
};

// The properties that have no setter of their own.
template <typename Properties>
void setPropertyState(Properties* properties, const ExtensionProperties::Dictionary& dictionary,
                      std::string_view name)
{
    const auto found = dictionary.find(name);
    if (found == dictionary.end()) return;
    [properties setPropertyState:[[CMIOExtensionPropertyState alloc]
                                     initWithValue:std::visit(ObjectOf{}, found->second.value)]
                     forProperty:keyOf(name)];
}

}  // namespace

NSSet<CMIOExtensionProperty>* toObject(const ExtensionPropertySet& properties)
{
    NSMutableSet<CMIOExtensionProperty>* const result = [NSMutableSet set];
    for (const auto& name : properties)
        [result addObject:keyOf(name)];
    return result;
}

ExtensionPropertySet fromObject(NSSet<CMIOExtensionProperty>* properties)
{
    ExtensionPropertySet result;
    for (CMIOExtensionProperty key in properties) {
        const auto* const property = propertyOf(key);
        result.insert(property ? std::string(property->name) : ns::toText(key));
    }
    return result;
}

CMIOExtensionProviderProperties* toObject(const ExtensionProviderProperties& properties)
{
    CMIOExtensionProviderProperties* const result =
        [[CMIOExtensionProviderProperties alloc] initWithDictionary:[NSDictionary dictionary]];
    if (const auto manufacturer = properties.manufacturer())
        result.manufacturer = ns::toObject(*manufacturer);
    return result;
}

CMIOExtensionDeviceProperties* toObject(const ExtensionDeviceProperties& properties)
{
    CMIOExtensionDeviceProperties* const result =
        [[CMIOExtensionDeviceProperties alloc] initWithDictionary:[NSDictionary dictionary]];
    if (const auto type = properties.transportType())
        result.transportType = [NSNumber numberWithUnsignedInt:*type];
    if (const auto model = properties.model()) result.model = ns::toObject(*model);
    setPropertyState(result, properties.propertiesDictionary(),
                     CMIOExtensionPropertyDeviceCanBeDefaultInputDevice);
    return result;
}

CMIOExtensionStreamProperties* toObject(const ExtensionStreamProperties& properties)
{
    CMIOExtensionStreamProperties* const result =
        [[CMIOExtensionStreamProperties alloc] initWithDictionary:[NSDictionary dictionary]];
    if (const auto index = properties.activeFormatIndex())
        result.activeFormatIndex = [NSNumber numberWithUnsignedInt:*index];
    if (const auto duration = properties.frameDuration()) result.frameDuration = toObject(*duration);
    return result;
}

ExtensionProperties::Dictionary fromObject(CMIOExtensionPropertyStates* states)
{
    ExtensionProperties::Dictionary result;
    for (CMIOExtensionProperty key in states) {
        const auto* const property = propertyOf(key);
        if (!property) continue;
        if (const auto value = property->read(states[key].value))
            result.insert_or_assign(std::string(property->name), ExtensionPropertyState{*value});
    }
    return result;
}

}  // namespace cmio
