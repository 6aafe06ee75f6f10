#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionProvider.h"

#include <CoreMediaIO/CoreMediaIO.h>

// What stands behind the objects of this face. The framework knows sources weakly, so each keeps the object
// that the framework asks.
namespace cmio {

struct ExtensionProvider::Impl {
    id<CMIOExtensionProviderSource> source;
    CMIOExtensionProvider* provider;
};

struct ExtensionDevice::Impl {
    id<CMIOExtensionDeviceSource> source;
    CMIOExtensionDevice* device;
};

struct ExtensionStream::Impl {
    id<CMIOExtensionStreamSource> source;
    CMIOExtensionStream* stream;
};

}  // namespace cmio
