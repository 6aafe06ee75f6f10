#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionProvider.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// In place of the CoreMediaIO face: providers, devices and streams that publish nothing and record what they
// are given. Safe to use from several threads at once.
namespace cmio::test {

struct ProviderRecord {
    std::weak_ptr<ExtensionProviderSource> source;
    dispatch_queue_t clientQueue;
    std::vector<std::shared_ptr<ExtensionDevice>> devices;
};
struct DeviceRecord {
    std::string localizedName;
    ns::UUID deviceID;
    std::string legacyDeviceID;
    std::weak_ptr<ExtensionDeviceSource> source;
    std::vector<std::shared_ptr<ExtensionStream>> streams;
};
struct SentSample {
    cf::Ref<CMSampleBufferRef> sample;
    ExtensionStreamDiscontinuityFlags discontinuity;
    std::uint64_t hostTimeNanoseconds;
};
struct StreamRecord {
    std::string localizedName;
    ns::UUID streamID;
    ExtensionStreamDirection direction;
    ExtensionStreamClockType clockType;
    std::weak_ptr<ExtensionStreamSource> source;
};

ProviderRecord record(ExtensionProvider& provider);
DeviceRecord record(ExtensionDevice& device);
StreamRecord record(ExtensionStream& stream);

std::vector<SentSample> sentSamples(ExtensionStream& stream);
std::size_t sentSampleCount(ExtensionStream& stream);
// Observers that are registered now.
std::size_t observerCount(ExtensionStream& stream);
// Sets streamingClients and tells the observers, on this thread. No value at all: the observers are told of a
// change without a new value.
void setStreamingClients(ExtensionStream& stream, std::optional<std::vector<ExtensionClient>> clients);
// The same with a client for each process identifier.
void setStreamingPIDs(ExtensionStream& stream, const std::vector<std::int32_t>& pids);

// What startServiceWithProvider was called with, oldest first; forgotten when asked for.
std::vector<std::shared_ptr<ExtensionProvider>> takeStartedProviders();

// What addDevice and addStream answer from now on; none: they succeed.
void failAddDevice(std::optional<ns::Error> error);
void failAddStream(std::optional<ns::Error> error);

// Told each creation and addition at once: "create provider", "create device", "create stream", "add stream",
// "add device", "start service", "observe clients". Empty: nobody.
void setCallObserver(std::function<void(const std::string&)> observer);

}  // namespace cmio::test
