#include "Tests/Producer/ProducerFixture.h"

#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Wait.h"

#include <os/log_printf.h>

#include <cstdlib>
#include <utility>

namespace pavo::test {

namespace {

// Set before any thread exists: threads that look names up read the environment.
class PrivateNamespace final : public testing::Environment {
public:
    void SetUp() override
    {
        ::setenv("PAVO_BOOTSTRAP_DIR", folder_.path().c_str(), 1);
        os_log_set_standard_error_fallback(false);
    }

private:
    TemporaryFolder folder_;
};

[[maybe_unused]] const auto* const privateNamespace = testing::AddGlobalTestEnvironment(new PrivateNamespace);

}  // namespace

ProducerFixture::ProducerFixture()
{
    static int count = 0;
    service = "com.example.camera." + std::to_string(++count);
}

ProducerFixture::~ProducerFixture()
{
    if (camera) camera->end();
}

pavo_producer_config ProducerFixture::config(std::uint32_t format, std::uint32_t width,
                                             std::uint32_t height) const
{
    pavo_producer_config config = PAVO_PRODUCER_CONFIG_INIT(format, width, height);
    config.service = service.c_str();
    return config;
}

Producer ProducerFixture::open(const pavo_producer_config& config) const
{
    auto producer = Producer::open(config);
    EXPECT_TRUE(producer);
    return std::move(*producer);
}

void ProducerFixture::startCamera(bool isSubscribed)
{
    camera = CameraDouble::create(service);
    camera->setSubscribed(isSubscribed);
}

void ProducerFixture::endCamera()
{
    camera->end();
    camera.reset();
    service += "x";
}

Producer ProducerFixture::openWanted(const pavo_producer_config& config)
{
    if (!camera) startCamera();
    auto producer = open(config);
    EXPECT_EQ(producer.waitUntilWanted(kLongNs), ProducerStatus::ok);
    return producer;
}

std::optional<pavo_event> ProducerFixture::waitForEvent(const Producer& producer, pavo_event_type type)
{
    pavo_event event{};
    while (producer.nextEvent(event, kLongNs) == ProducerStatus::ok)
        if (event.type == static_cast<std::uint32_t>(type)) return event;
    return std::nullopt;
}

std::optional<ProducerFrame> ProducerFixture::beginFrame(const Producer& producer)
{
    std::optional<ProducerFrame> frame;
    waitFor([&] {
        frame = producer.beginFrame();
        return frame.has_value();
    });
    return frame;
}

}  // namespace pavo::test
