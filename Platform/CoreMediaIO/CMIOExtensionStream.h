#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionClient.h"
#include "Platform/CoreMediaIO/CMIOExtensionProperties.h"
#include "Platform/Foundation/NSError.h"
#include "Platform/Foundation/NSKeyValueObservation.h"
#include "Platform/Foundation/NSUUID.h"
#include "Platform/Support/Ref.h"

#include <CoreMedia/CoreMedia.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace cmio {

enum class ExtensionStreamDirection : std::int64_t { source = 0, sink = 1 };
enum class ExtensionStreamClockType : std::int64_t { hostTime = 0, linkedCoreAudioDeviceUID = 1, custom = 2 };
enum class ExtensionStreamDiscontinuityFlags : std::uint32_t {
    none = 0,
    unknown = 1,
    time = 2,
    sampleDropped = 64
};

// A format that a stream offers.
struct ExtensionStreamFormat {
    cf::Ref<CMFormatDescriptionRef> formatDescription;
    CMTime maxFrameDuration;
    CMTime minFrameDuration;
    std::vector<CMTime> validFrameDurations;
};

// What the framework asks of a stream. Called on the provider's client queue.
class ExtensionStreamSource {
public:
    // Must not change while the stream lives, like availableProperties.
    virtual std::vector<ExtensionStreamFormat> formats() const = 0;
    virtual ExtensionPropertySet availableProperties() const = 0;
    virtual std::optional<ExtensionStreamProperties> streamProperties(const ExtensionPropertySet& properties,
                                                                      ns::Error* error) = 0;
    virtual bool setStreamProperties(const ExtensionStreamProperties& properties, ns::Error* error) = 0;
    virtual bool authorizedToStartStream(const ExtensionClient& client) = 0;
    // Called before the first client is added to streamingClients, and before the last one is removed.
    virtual bool startStream(ns::Error* error) = 0;
    virtual bool stopStream(ns::Error* error) = 0;

protected:
    ~ExtensionStreamSource() = default;
};

// One stream of a device. Keeps its source weakly.
class ExtensionStream final {
public:
    struct Impl;
    using ClientsChange = ns::KeyValueChange<std::vector<ExtensionClient>>;

    static std::shared_ptr<ExtensionStream> create(std::string_view localizedName, const ns::UUID& streamID,
                                                   ExtensionStreamDirection direction,
                                                   ExtensionStreamClockType clockType,
                                                   std::weak_ptr<ExtensionStreamSource> source);
    explicit ExtensionStream(std::unique_ptr<Impl> impl);
    ~ExtensionStream();

    // The processes that are streaming now. Any thread.
    std::vector<ExtensionClient> streamingClients() const;
    // Calls `handler` on the thread that changes streamingClients, after each change.
    [[nodiscard]] ns::KeyValueObservation
    observeStreamingClients(std::function<void(const ClientsChange&)> handler);

    // Hands a sample to every streaming client; returns without waiting for any. One thread at a time.
    // `hostTimeNanoseconds` is the sample's time on the host clock, 0 where it has none.
    void sendSampleBuffer(CMSampleBufferRef sample, ExtensionStreamDiscontinuityFlags discontinuity,
                          std::uint64_t hostTimeNanoseconds);

    Impl& impl() { return *impl_; }

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace cmio
