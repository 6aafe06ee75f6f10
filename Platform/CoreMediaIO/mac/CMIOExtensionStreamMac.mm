#include "Platform/CoreMediaIO/CMIOExtensionStream.h"

#include "Platform/CoreMediaIO/mac/CMIOConversions.h"
#include "Platform/CoreMediaIO/mac/CMIOExtensionImpl.h"
#include "Platform/CoreMediaIO/mac/CMIOSourceAdapters.h"
#include "Platform/CoreMediaIO/mac/CMIOStreamingClientsObserver.h"
#include "Platform/Foundation/mac/NSConversions.h"

#include <utility>

namespace cmio {

static_assert(static_cast<NSInteger>(ExtensionStreamDirection::sink) == CMIOExtensionStreamDirectionSink);
static_assert(static_cast<NSInteger>(ExtensionStreamClockType::custom) == CMIOExtensionStreamClockTypeCustom);
static_assert(static_cast<uint32_t>(ExtensionStreamDiscontinuityFlags::sampleDropped) ==
              CMIOExtensionStreamDiscontinuityFlagSampleDropped);

std::shared_ptr<ExtensionStream> ExtensionStream::create(std::string_view localizedName,
                                                         const ns::UUID& streamID,
                                                         ExtensionStreamDirection direction,
                                                         ExtensionStreamClockType clockType,
                                                         std::weak_ptr<ExtensionStreamSource> source)
{
    const auto object = sourceFactories.makeStreamSource({std::move(source)});
    CMIOExtensionStream* const stream =
        [[CMIOExtensionStream alloc] initWithLocalizedName:ns::toObject(localizedName)
                                                  streamID:ns::toObject(streamID)
                                                 direction:static_cast<NSInteger>(direction)
                                                 clockType:static_cast<NSInteger>(clockType)
                                                    source:object];
    return std::make_shared<ExtensionStream>(std::make_unique<Impl>(object, stream));
}

ExtensionStream::ExtensionStream(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

ExtensionStream::~ExtensionStream() = default;

std::vector<ExtensionClient> ExtensionStream::streamingClients() const
{
    return fromObject(impl_->stream.streamingClients);
}

ns::KeyValueObservation
ExtensionStream::observeStreamingClients(std::function<void(const ClientsChange&)> handler)
{
    PavoStreamingClientsObserver* const observer =
        [[PavoStreamingClientsObserver alloc] initWithStream:impl_->stream handler:std::move(handler)];
    return ns::KeyValueObservation([observer] { [observer end]; });
}

void ExtensionStream::sendSampleBuffer(CMSampleBufferRef sample,
                                       ExtensionStreamDiscontinuityFlags discontinuity,
                                       std::uint64_t hostTimeNanoseconds)
{
    [impl_->stream sendSampleBuffer:sample
                      discontinuity:static_cast<CMIOExtensionStreamDiscontinuityFlags>(discontinuity)
              hostTimeInNanoseconds:hostTimeNanoseconds];
}

}  // namespace cmio
