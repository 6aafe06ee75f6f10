#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionDevice.h"
#include "Platform/CoreMediaIO/CMIOExtensionProvider.h"
#include "Platform/CoreMediaIO/CMIOExtensionStream.h"
#include "Platform/CoreMediaIO/linux/SampleSink.h"
#include "Platform/CoreMediaIO/linux/StreamingClientList.h"
#include "Platform/Support/Dispatch.h"
#include "Platform/Support/Synchronized.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace cmio {

class CameraService;

struct ExtensionStream::Impl {
    std::string localizedName;
    ns::UUID streamID;
    ExtensionStreamDirection direction;
    std::weak_ptr<ExtensionStreamSource> source;
    StreamingClientList clients;
    // Null while the stream is not published.
    pavo::Synchronized<std::shared_ptr<SampleSink>> sink;
};

struct ExtensionDevice::Impl {
    std::string localizedName;
    ns::UUID deviceID;
    std::string legacyDeviceID;
    std::weak_ptr<ExtensionDeviceSource> source;
    std::vector<std::shared_ptr<ExtensionStream>> streams;
};

struct ExtensionProvider::Impl {
    std::weak_ptr<ExtensionProviderSource> source;
    dispatch::Queue clientQueue;
    std::vector<std::shared_ptr<ExtensionDevice>> devices;
    // Null before the service is started.
    std::shared_ptr<CameraService> service;
};

// Adds an object to a list that takes each object once; else false and the platform's error.
template <typename Object>
bool addOnce(std::vector<std::shared_ptr<Object>>& list, const std::shared_ptr<Object>& object,
             ns::Error* error)
{
    constexpr std::int64_t kParameterError = -50;
    if (object && std::find(list.begin(), list.end(), object) == list.end()) {
        list.push_back(object);
        return true;
    }
    if (error) *error = {ns::NSOSStatusErrorDomain, kParameterError};
    return false;
}

}  // namespace cmio
