#include "Platform/CoreMediaIO/linux/CMIOExtensionImpl.h"
#include "Platform/Support/Fatal.h"

#include <utility>

namespace cmio {

std::shared_ptr<ExtensionStream> ExtensionStream::create(std::string_view localizedName,
                                                         const ns::UUID& streamID,
                                                         ExtensionStreamDirection direction,
                                                         ExtensionStreamClockType clockType,
                                                         std::weak_ptr<ExtensionStreamSource> source)
{
    // PipeWire clients read the host clock; it has no other to offer.
    pavo::require(clockType == ExtensionStreamClockType::hostTime, "A stream's clock must be the host's");
    std::unique_ptr<Impl> impl(
        new Impl{std::string(localizedName), streamID, direction, std::move(source), {}, {}});
    return std::make_shared<ExtensionStream>(std::move(impl));
}

ExtensionStream::ExtensionStream(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

ExtensionStream::~ExtensionStream() = default;

std::vector<ExtensionClient> ExtensionStream::streamingClients() const
{
    return impl_->clients.clients();
}

ns::KeyValueObservation
ExtensionStream::observeStreamingClients(std::function<void(const ClientsChange&)> handler)
{
    return impl_->clients.observe(std::move(handler));
}

void ExtensionStream::sendSampleBuffer(CMSampleBufferRef sample,
                                       ExtensionStreamDiscontinuityFlags discontinuity,
                                       std::uint64_t hostTimeNanoseconds)
{
    pavo::require(impl_->direction == ExtensionStreamDirection::source, "A sink stream sends no samples");
    pavo::require(sample != nullptr, "There must be a sample to send");
    // A process may be linked before it is let in, or though it is not.
    if (impl_->clients.isEmpty()) return;
    if (const auto sink = impl_->sink.load())
        sink->send({cf::retain(sample), hostTimeNanoseconds,
                    discontinuity != ExtensionStreamDiscontinuityFlags::none});
}

}  // namespace cmio
