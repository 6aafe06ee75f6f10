// Property states, and the three kinds of answers that are made of them. Every call is recorded.

#include "Tests/MacOS/Doubles/Calls.h"
#include "Tests/MacOS/Doubles/CoreMediaIODouble.h"
#include "Tests/MacOS/Doubles/FoundationDouble.h"
#include "Tests/MacOS/Runtime/Runtime.h"

#include <map>
#include <string>

namespace objc = pavo::test::objc;
using pavo::test::recordCall;

// Not the names of the variables: an adapter must use the variables.
CMIOExtensionProperty const CMIOExtensionPropertyProviderManufacturer = @"4cc_manu";
CMIOExtensionProperty const CMIOExtensionPropertyDeviceModel = @"4cc_modl";
CMIOExtensionProperty const CMIOExtensionPropertyDeviceTransportType = @"4cc_tran";
CMIOExtensionProperty const CMIOExtensionPropertyDeviceCanBeDefaultInputDevice = @"4cc_dflt";
CMIOExtensionProperty const CMIOExtensionPropertyStreamActiveFormatIndex = @"4cc_fmti";
CMIOExtensionProperty const CMIOExtensionPropertyStreamFrameDuration = @"4cc_fdur";

@implementation CMIOExtensionPropertyState

- (instancetype)initWithValue:(id)value
{
    self = [super init];
    _value = value;
    return self;
}

@end

namespace {

using States = std::map<std::string, CMIOExtensionPropertyState*>;

void requireEmpty(NSDictionary* dictionary)
{
    if (!dictionary || dictionary.count != 0) objc::die("The properties must start empty");
}

void setValue(States& states, CMIOExtensionProperty property, id value, Class type)
{
    if (value && ![value isKindOfClass:type]) objc::die("A property of another class: ", property.UTF8String);
    if (value)
        states[property.UTF8String] = [[CMIOExtensionPropertyState alloc] initWithValue:value];
    else
        states.erase(property.UTF8String);
}

id valueIn(const States& states, CMIOExtensionProperty property)
{
    const auto found = states.find(property.UTF8String);
    return found == states.end() ? nil : found->second.value;
}

NSDictionary* dictionaryOf(const States& states)
{
    return pavo::test::makeDictionary({states.begin(), states.end()});
}

States statesOf(NSDictionary* dictionary)
{
    States states;
    for (NSString* key in dictionary)
        states[key.UTF8String] = dictionary[key];
    return states;
}

}  // namespace

@implementation CMIOExtensionProviderProperties {
    States _states;
}

- (instancetype)initWithDictionary:(NSDictionary*)propertiesDictionary
{
    requireEmpty(propertiesDictionary);
    return [super init];
}

- (void)setManufacturer:(NSString*)manufacturer
{
    recordCall("setManufacturer");
    setValue(_states, CMIOExtensionPropertyProviderManufacturer, manufacturer, [NSString class]);
}

- (NSString*)manufacturer
{
    return valueIn(_states, CMIOExtensionPropertyProviderManufacturer);
}

- (void)setPropertyState:(CMIOExtensionPropertyState*)state forProperty:(CMIOExtensionProperty)property
{
    recordCall(std::string("setPropertyState ") + property.UTF8String);
    _states[property.UTF8String] = state;
}

- (NSDictionary*)propertiesDictionary
{
    return dictionaryOf(_states);
}

- (void)setPropertiesDictionary:(NSDictionary*)dictionary
{
    _states = statesOf(dictionary);
}

@end

@implementation CMIOExtensionDeviceProperties {
    States _states;
}

- (instancetype)initWithDictionary:(NSDictionary*)propertiesDictionary
{
    requireEmpty(propertiesDictionary);
    return [super init];
}

- (void)setModel:(NSString*)model
{
    recordCall("setModel");
    setValue(_states, CMIOExtensionPropertyDeviceModel, model, [NSString class]);
}

- (NSString*)model
{
    return valueIn(_states, CMIOExtensionPropertyDeviceModel);
}

- (void)setTransportType:(NSNumber*)transportType
{
    recordCall("setTransportType");
    setValue(_states, CMIOExtensionPropertyDeviceTransportType, transportType, [NSNumber class]);
}

- (NSNumber*)transportType
{
    return valueIn(_states, CMIOExtensionPropertyDeviceTransportType);
}

- (void)setPropertyState:(CMIOExtensionPropertyState*)state forProperty:(CMIOExtensionProperty)property
{
    recordCall(std::string("setPropertyState ") + property.UTF8String);
    _states[property.UTF8String] = state;
}

- (NSDictionary*)propertiesDictionary
{
    return dictionaryOf(_states);
}

- (void)setPropertiesDictionary:(NSDictionary*)dictionary
{
    _states = statesOf(dictionary);
}

@end

@implementation CMIOExtensionStreamProperties {
    States _states;
}

- (instancetype)initWithDictionary:(NSDictionary*)propertiesDictionary
{
    requireEmpty(propertiesDictionary);
    return [super init];
}

- (void)setActiveFormatIndex:(NSNumber*)activeFormatIndex
{
    recordCall("setActiveFormatIndex");
    setValue(_states, CMIOExtensionPropertyStreamActiveFormatIndex, activeFormatIndex, [NSNumber class]);
}

- (NSNumber*)activeFormatIndex
{
    return valueIn(_states, CMIOExtensionPropertyStreamActiveFormatIndex);
}

- (void)setFrameDuration:(NSDictionary*)frameDuration
{
    recordCall("setFrameDuration");
    setValue(_states, CMIOExtensionPropertyStreamFrameDuration, frameDuration, [NSDictionary class]);
}

- (NSDictionary*)frameDuration
{
    return valueIn(_states, CMIOExtensionPropertyStreamFrameDuration);
}

- (void)setPropertyState:(CMIOExtensionPropertyState*)state forProperty:(CMIOExtensionProperty)property
{
    recordCall(std::string("setPropertyState ") + property.UTF8String);
    _states[property.UTF8String] = state;
}

- (NSDictionary*)propertiesDictionary
{
    return dictionaryOf(_states);
}

- (void)setPropertiesDictionary:(NSDictionary*)dictionary
{
    _states = statesOf(dictionary);
}

@end
