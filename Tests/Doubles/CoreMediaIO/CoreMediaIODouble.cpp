#include "Tests/Doubles/CoreMediaIO/CoreMediaIODouble.h"

#include <map>
#include <mutex>
#include <utility>

namespace cmio {

namespace {

struct Settings {
    std::mutex mutex;
    std::function<void(const std::string&)> observer;
    std::optional<ns::Error> addDeviceError;
    std::optional<ns::Error> addStreamError;
    std::vector<std::shared_ptr<ExtensionProvider>> started;
};

Settings& settings()
{
    static Settings instance;
    return instance;
}

void tellObserver(const std::string& call)
{
    std::function<void(const std::string&)> observer;
    {
        const std::lock_guard lock(settings().mutex);
        observer = settings().observer;
    }
    if (observer) observer(call);
}

// Fills `error` and answers false where a failure was asked for.
bool succeed(std::optional<ns::Error> Settings::* failure, ns::Error* error)
{
    const std::lock_guard lock(settings().mutex);
    const auto& wanted = settings().*failure;
    if (!wanted) return true;
    if (error) *error = *wanted;
    return false;
}

}  // namespace

struct ExtensionProvider::Impl {
    std::mutex mutex;
    test::ProviderRecord record;
};
struct ExtensionDevice::Impl {
    std::mutex mutex;
    test::DeviceRecord record;
};

// Shared with the ends of observations, which may outlive the stream.
struct ExtensionStream::Impl {
    struct Shared {
        std::mutex mutex;
        std::vector<ExtensionClient> clients;
        std::vector<test::SentSample> samples;
        std::map<int, std::function<void(const ClientsChange&)>> observers;
        int nextObserver = 0;
    };
    test::StreamRecord record;
    std::shared_ptr<Shared> shared = std::make_shared<Shared>();
};

std::shared_ptr<ExtensionProvider> ExtensionProvider::create(std::weak_ptr<ExtensionProviderSource> source,
                                                             dispatch_queue_t clientQueue)
{
    tellObserver("create provider");
    auto impl = std::make_unique<Impl>();
    impl->record.source = std::move(source);
    impl->record.clientQueue = clientQueue;
    return std::make_shared<ExtensionProvider>(std::move(impl));
}

ExtensionProvider::ExtensionProvider(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
ExtensionProvider::~ExtensionProvider() = default;

bool ExtensionProvider::addDevice(const std::shared_ptr<ExtensionDevice>& device, ns::Error* error)
{
    tellObserver("add device");
    if (!succeed(&Settings::addDeviceError, error)) return false;
    const std::lock_guard lock(impl_->mutex);
    impl_->record.devices.push_back(device);
    return true;
}

void ExtensionProvider::startServiceWithProvider(const std::shared_ptr<ExtensionProvider>& provider)
{
    tellObserver("start service");
    const std::lock_guard lock(settings().mutex);
    settings().started.push_back(provider);
}

std::shared_ptr<ExtensionDevice> ExtensionDevice::create(std::string_view localizedName,
                                                         const ns::UUID& deviceID,
                                                         std::string_view legacyDeviceID,
                                                         std::weak_ptr<ExtensionDeviceSource> source)
{
    tellObserver("create device");
    return std::make_shared<ExtensionDevice>(std::unique_ptr<Impl>(new Impl{
        {}, {std::string(localizedName), deviceID, std::string(legacyDeviceID), std::move(source), {}}}));
}

ExtensionDevice::ExtensionDevice(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
ExtensionDevice::~ExtensionDevice() = default;

bool ExtensionDevice::addStream(const std::shared_ptr<ExtensionStream>& stream, ns::Error* error)
{
    tellObserver("add stream");
    if (!succeed(&Settings::addStreamError, error)) return false;
    const std::lock_guard lock(impl_->mutex);
    impl_->record.streams.push_back(stream);
    return true;
}

std::shared_ptr<ExtensionStream> ExtensionStream::create(std::string_view localizedName,
                                                         const ns::UUID& streamID,
                                                         ExtensionStreamDirection direction,
                                                         ExtensionStreamClockType clockType,
                                                         std::weak_ptr<ExtensionStreamSource> source)
{
    tellObserver("create stream");
    return std::make_shared<ExtensionStream>(std::unique_ptr<Impl>(
        new Impl{{std::string(localizedName), streamID, direction, clockType, std::move(source)}}));
}

ExtensionStream::ExtensionStream(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
ExtensionStream::~ExtensionStream() = default;

std::vector<ExtensionClient> ExtensionStream::streamingClients() const
{
    const std::lock_guard lock(impl_->shared->mutex);
    return impl_->shared->clients;
}

ns::KeyValueObservation
ExtensionStream::observeStreamingClients(std::function<void(const ClientsChange&)> handler)
{
    tellObserver("observe clients");
    const auto shared = impl_->shared;
    const std::lock_guard lock(shared->mutex);
    const int number = shared->nextObserver++;
    shared->observers.emplace(number, std::move(handler));
    return ns::KeyValueObservation([shared, number] {
        const std::lock_guard endLock(shared->mutex);
        shared->observers.erase(number);
    });
}

void ExtensionStream::sendSampleBuffer(CMSampleBufferRef sample,
                                       ExtensionStreamDiscontinuityFlags discontinuity,
                                       std::uint64_t hostTimeNanoseconds)
{
    const std::lock_guard lock(impl_->shared->mutex);
    impl_->shared->samples.push_back({cf::retain(sample), discontinuity, hostTimeNanoseconds});
}

namespace test {

ProviderRecord record(ExtensionProvider& provider)
{
    const std::lock_guard lock(provider.impl().mutex);
    return provider.impl().record;
}

DeviceRecord record(ExtensionDevice& device)
{
    const std::lock_guard lock(device.impl().mutex);
    return device.impl().record;
}

StreamRecord record(ExtensionStream& stream)
{
    return stream.impl().record;
}

std::vector<SentSample> sentSamples(ExtensionStream& stream)
{
    const std::lock_guard lock(stream.impl().shared->mutex);
    return stream.impl().shared->samples;
}

std::size_t sentSampleCount(ExtensionStream& stream)
{
    const std::lock_guard lock(stream.impl().shared->mutex);
    return stream.impl().shared->samples.size();
}

std::size_t observerCount(ExtensionStream& stream)
{
    const std::lock_guard lock(stream.impl().shared->mutex);
    return stream.impl().shared->observers.size();
}

void setStreamingClients(ExtensionStream& stream, std::optional<std::vector<ExtensionClient>> clients)
{
    const auto shared = stream.impl().shared;
    std::map<int, std::function<void(const ExtensionStream::ClientsChange&)>> observers;
    {
        const std::lock_guard lock(shared->mutex);
        shared->clients = clients.value_or(std::vector<ExtensionClient>());
        observers = shared->observers;
    }
    const ExtensionStream::ClientsChange change{std::move(clients)};
    for (const auto& [number, observer] : observers)
        observer(change);
}

void setStreamingPIDs(ExtensionStream& stream, const std::vector<std::int32_t>& pids)
{
    std::vector<ExtensionClient> clients;
    for (const auto pid : pids)
        clients.push_back({ns::UUID::random(), pid});
    setStreamingClients(stream, std::move(clients));
}

std::vector<std::shared_ptr<ExtensionProvider>> takeStartedProviders()
{
    const std::lock_guard lock(settings().mutex);
    return std::exchange(settings().started, {});
}

void failAddDevice(std::optional<ns::Error> error)
{
    const std::lock_guard lock(settings().mutex);
    settings().addDeviceError = std::move(error);
}

void failAddStream(std::optional<ns::Error> error)
{
    const std::lock_guard lock(settings().mutex);
    settings().addStreamError = std::move(error);
}

void setCallObserver(std::function<void(const std::string&)> observer)
{
    const std::lock_guard lock(settings().mutex);
    settings().observer = std::move(observer);
}

}  // namespace test

}  // namespace cmio
