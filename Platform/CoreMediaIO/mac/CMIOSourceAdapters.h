#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionProvider.h"

#include <CoreMediaIO/CoreMediaIO.h>

#include <memory>

// What the framework's questions become for the C++ sources. The Objective-C objects that the framework asks
// hold one of these each and pass every question on to it. Their classes belong to whoever builds the image,
// because the names under which the system sees them do: see SourceFactories.
//
// Errors: a source that is gone refuses everything.
namespace cmio {

struct ProviderSourceAdapter {
    std::weak_ptr<ExtensionProviderSource> source;

    BOOL connectClient(CMIOExtensionClient* client, NSError** error) const;
    void disconnectClient(CMIOExtensionClient* client) const;
    NSSet<CMIOExtensionProperty>* availableProperties() const;
    CMIOExtensionProviderProperties* properties(NSSet<CMIOExtensionProperty>* properties,
                                                NSError** error) const;
    BOOL setProperties(CMIOExtensionProviderProperties* properties, NSError** error) const;
};

struct DeviceSourceAdapter {
    std::weak_ptr<ExtensionDeviceSource> source;

    NSSet<CMIOExtensionProperty>* availableProperties() const;
    CMIOExtensionDeviceProperties* properties(NSSet<CMIOExtensionProperty>* properties,
                                              NSError** error) const;
    BOOL setProperties(CMIOExtensionDeviceProperties* properties, NSError** error) const;
};

struct StreamSourceAdapter {
    std::weak_ptr<ExtensionStreamSource> source;

    NSArray<CMIOExtensionStreamFormat*>* formats() const;
    NSSet<CMIOExtensionProperty>* availableProperties() const;
    CMIOExtensionStreamProperties* properties(NSSet<CMIOExtensionProperty>* properties,
                                              NSError** error) const;
    BOOL setProperties(CMIOExtensionStreamProperties* properties, NSError** error) const;
    BOOL isAuthorizedToStart(CMIOExtensionClient* client) const;
    BOOL start(NSError** error) const;
    BOOL stop(NSError** error) const;
};

// Makes the Objective-C object that the framework asks in the place of a C++ source.
struct SourceFactories {
    id<CMIOExtensionProviderSource> (*makeProviderSource)(ProviderSourceAdapter adapter);
    id<CMIOExtensionDeviceSource> (*makeDeviceSource)(DeviceSourceAdapter adapter);
    id<CMIOExtensionStreamSource> (*makeStreamSource)(StreamSourceAdapter adapter);
};

// Defined by whoever builds the image.
extern const SourceFactories sourceFactories;

}  // namespace cmio
