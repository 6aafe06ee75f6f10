#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionProvider.h"

#include <CoreMediaIO/CoreMediaIO.h>

#include <vector>

// Between the face's plain values and the framework's objects.
namespace cmio {

ExtensionClient fromObject(CMIOExtensionClient* client);
std::vector<ExtensionClient> fromObject(NSArray<CMIOExtensionClient*>* clients);

// A time, in the form in which a dictionary of properties holds it.
NSDictionary* toObject(CMTime time);

NSSet<CMIOExtensionProperty>* toObject(const ExtensionPropertySet& properties);
ExtensionPropertySet fromObject(NSSet<CMIOExtensionProperty>* properties);

CMIOExtensionProviderProperties* toObject(const ExtensionProviderProperties& properties);
CMIOExtensionDeviceProperties* toObject(const ExtensionDeviceProperties& properties);
CMIOExtensionStreamProperties* toObject(const ExtensionStreamProperties& properties);
// Leaves out properties that the face does not know, and values that are not of a property's class.
ExtensionProperties::Dictionary fromObject(CMIOExtensionPropertyStates* states);

NSArray<CMIOExtensionStreamFormat*>* toObject(const std::vector<ExtensionStreamFormat>& formats);

}  // namespace cmio
