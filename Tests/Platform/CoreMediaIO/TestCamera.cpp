#include "Tests/Platform/CoreMediaIO/TestCamera.h"

#include <mach/mach_time.h>

#include <atomic>
#include <utility>

namespace cmio::test {

namespace {

cf::Ref<CMSampleBufferRef> makeSample(CVPixelBufferRef picture)
{
    cf::Ref<CMFormatDescriptionRef> format;
    CMVideoFormatDescriptionCreateForImageBuffer(kCFAllocatorDefault, picture, format.receive());
    cf::Ref<CMSampleBufferRef> sample;
    const CMSampleTimingInfo timing = kCMTimingInfoInvalid;
    CMSampleBufferCreateReadyWithImageBuffer(kCFAllocatorDefault, picture, format.get(), &timing,
                                             sample.receive());
    return sample;
}

}  // namespace

class TestCamera::Sources final : public ExtensionProviderSource,
                                  public ExtensionDeviceSource,
                                  public ExtensionStreamSource {
public:
    explicit Sources(dispatch_queue_t clientQueue) : clientQueue_(clientQueue) {}

    bool connectClient(const ExtensionClient& client, ns::Error*) override
    {
        record("connect " + std::to_string(client.pid));
        return true;
    }
    void disconnectClient(const ExtensionClient& client) override
    {
        record("disconnect " + std::to_string(client.pid));
    }
    ExtensionPropertySet availableProperties() const override
    {
        return {std::string(CMIOExtensionPropertyProviderManufacturer),
                std::string(CMIOExtensionPropertyDeviceModel)};
    }
    std::optional<ExtensionProviderProperties> providerProperties(const ExtensionPropertySet&,
                                                                  ns::Error*) override
    {
        ExtensionProviderProperties properties(ExtensionProperties::Dictionary{});
        properties.setManufacturer("Test Maker");
        return properties;
    }
    bool setProviderProperties(const ExtensionProviderProperties&, ns::Error*) override { return false; }
    std::optional<ExtensionDeviceProperties> deviceProperties(const ExtensionPropertySet&,
                                                              ns::Error*) override
    {
        ExtensionDeviceProperties properties(ExtensionProperties::Dictionary{});
        properties.setModel("Test Model");
        return properties;
    }
    bool setDeviceProperties(const ExtensionDeviceProperties&, ns::Error*) override { return false; }
    std::vector<ExtensionStreamFormat> formats() const override
    {
        cf::Ref<CMFormatDescriptionRef> format;
        CMVideoFormatDescriptionCreate(kCFAllocatorDefault, kCMVideoCodecType_422YpCbCr8, 1920, 1080, nullptr,
                                       format.receive());
        return {{std::move(format), CMTimeMake(1, 60), CMTimeMake(1, 60), {}}};
    }
    std::optional<ExtensionStreamProperties> streamProperties(const ExtensionPropertySet&,
                                                              ns::Error*) override
    {
        return std::nullopt;
    }
    bool setStreamProperties(const ExtensionStreamProperties&, ns::Error*) override { return false; }
    bool authorizedToStartStream(const ExtensionClient& client) override
    {
        record("authorize " + std::to_string(client.pid));
        return !refusesEverybody;
    }
    bool startStream(ns::Error*) override
    {
        record("start");
        return true;
    }
    bool stopStream(ns::Error*) override
    {
        record("stop");
        return true;
    }

    void record(std::string event)
    {
        dispatch_assert_queue(clientQueue_);
        const std::lock_guard lock(mutex_);
        events_.push_back(std::move(event));
    }
    std::vector<std::string> events() const
    {
        const std::lock_guard lock(mutex_);
        return events_;
    }

    std::atomic<bool> refusesEverybody = false;

private:
    dispatch_queue_t clientQueue_;
    mutable std::mutex mutex_;
    std::vector<std::string> events_;
};

TestCamera::TestCamera()
    : clientQueue_(dispatch::Queue::serial("test.clients")),
      sendQueue_(dispatch::Queue::serial("test.frames", QOS_CLASS_USER_INTERACTIVE)),
      sources_(std::make_shared<Sources>(clientQueue_.get())),
      stream_(ExtensionStream::create("Test Stream", ns::UUID::random(), ExtensionStreamDirection::source,
                                      ExtensionStreamClockType::hostTime, sources_)),
      provider_(ExtensionProvider::create(sources_, clientQueue_.get()))
{
    const auto device = ExtensionDevice::create("Pavo Camera", ns::UUID::random(), "Legacy", sources_);
    device->addStream(stream_, nullptr);
    provider_->addDevice(device, nullptr);
    observation_ = stream_->observeStreamingClients([sources = sources_](const auto& change) {
        std::string text = "clients";
        for (const ExtensionClient& client : *change.newValue)
            text += " " + std::to_string(client.pid);
        sources->record(std::move(text));
    });
}

TestCamera::~TestCamera()
{
    stopSending();
    provider_.reset();
    dispatch::sync(clientQueue_.get(), [] {});
}

void TestCamera::publish()
{
    ExtensionProvider::startServiceWithProvider(provider_);
}

void TestCamera::startSending(cf::Ref<CVPixelBufferRef> picture)
{
    stopSending();
    sender_ = std::make_unique<dispatch::TimerSource>(sendQueue_.get());
    sender_->schedule(DISPATCH_TIME_NOW, NSEC_PER_SEC / 60);
    sender_->setEventHandler([stream = stream_, sample = makeSample(picture.get())] {
        stream->sendSampleBuffer(sample.get(), ExtensionStreamDiscontinuityFlags::none, mach_absolute_time());
    });
    sender_->resume();
}

void TestCamera::stopSending()
{
    sender_.reset();
    // A fire that is under way sends its sample yet.
    dispatch::sync(sendQueue_.get(), [] {});
}

cf::Ref<CMSampleBufferRef> TestCamera::sendOnce(CVPixelBufferRef picture, std::uint64_t hostTimeNanoseconds)
{
    auto sample = makeSample(picture);
    stream_->sendSampleBuffer(sample.get(), ExtensionStreamDiscontinuityFlags::none, hostTimeNanoseconds);
    return sample;
}

std::vector<std::string> TestCamera::events() const
{
    return sources_->events();
}

std::vector<std::int32_t> TestCamera::streamingProcesses() const
{
    std::vector<std::int32_t> processes;
    for (const ExtensionClient& client : stream_->streamingClients())
        processes.push_back(client.pid);
    return processes;
}

void TestCamera::refuseEverybody()
{
    sources_->refusesEverybody = true;
}

}  // namespace cmio::test
