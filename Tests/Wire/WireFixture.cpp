#include "Tests/Wire/WireFixture.h"

#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Wait.h"

#include <fcntl.h>
#include <mach/port_private.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

namespace pavo::test {

namespace {

// Set before any thread exists: threads that look names up read the environment.
class PrivateNamespace final : public testing::Environment {
public:
    void SetUp() override { ::setenv("PAVO_BOOTSTRAP_DIR", folder_.path().c_str(), 1); }

private:
    TemporaryFolder folder_;
};

[[maybe_unused]] const auto* const privateNamespace = testing::AddGlobalTestEnvironment(new PrivateNamespace);

}  // namespace

std::shared_ptr<RecordingCamera> RecordingCamera::create()
{
    const std::shared_ptr<RecordingCamera> camera(new RecordingCamera);
    camera->self_ = camera;
    return camera;
}

void RecordingCamera::didRecieveRawFrame(IOSurfaceRef surface, CMSampleTimingInfo timing)
{
    const std::lock_guard lock(mutex_);
    frames_.push_back({cf::retain(surface), timing});
}

void RecordingCamera::targetFPSChangedTo(double framesPerSecond)
{
    const std::lock_guard lock(mutex_);
    rates_.push_back(framesPerSecond);
}

bool RecordingCamera::listenerShouldAcceptNewConnection(xpc::Listener&,
                                                        const std::shared_ptr<xpc::Connection>& newConnection)
{
    newConnection->setRemoteObjectInterface(xpc::describe<VideoFrameProducerServiceReportReceiving>());
    newConnection->setExportedInterface(xpc::describe<VideoFrameConsumerService>());
    newConnection->setExportedObject(xpc::exportObject<VideoFrameConsumerService>(self_.lock()));
    newConnection->resume();
    const std::lock_guard lock(mutex_);
    connections_.push_back(newConnection);
    return true;
}

std::vector<RecordingCamera::Frame> RecordingCamera::frames() const
{
    const std::lock_guard lock(mutex_);
    return frames_;
}

std::vector<double> RecordingCamera::rates() const
{
    const std::lock_guard lock(mutex_);
    return rates_;
}

std::optional<RecordingCamera::Producer> RecordingCamera::producer() const
{
    const std::lock_guard lock(mutex_);
    if (connections_.empty()) return std::nullopt;
    return Producer::cast(connections_.back()->remoteObjectProxy());
}

void RecordingCamera::hangUp()
{
    std::vector<std::shared_ptr<xpc::Connection>> ended;
    {
        const std::lock_guard lock(mutex_);
        ended.swap(connections_);
    }
    for (const auto& connection : ended)
        connection->invalidate();
}

WireTest::WireTest() : listener(xpc::Listener::anonymousListener())
{
    listener->setDelegate(camera);
    listener->resume();
}

void WireTest::TearDown()
{
    listener->invalidate();
    camera->hangUp();
}

RawPeer WireTest::connect() const
{
    const auto endpoint = listener->endpoint();
    mach_port_t socket = MACH_PORT_NULL;
    EXPECT_EQ(mach_port_connect(xpc::ListenerEndpoint::machPort(endpoint.object()), &socket), KERN_SUCCESS);
    return RawPeer(UniqueFd(static_cast<int>(socket)));
}

RawPeer WireTest::connectProducer() const
{
    auto producer = connect();
    EXPECT_TRUE(producer.authenticate());
    EXPECT_TRUE(waitFor([this] { return camera->producer().has_value(); }));
    return producer;
}

UniqueFd makeSurfaceByHand(std::uint8_t fill)
{
    constexpr std::uint32_t kWidth = 64, kHeight = 48, kBytesPerRow = kWidth * 2;
    constexpr std::size_t kPixelBytes = std::size_t{kBytesPerRow} * kHeight, kPageBytes = 4096;
    constexpr std::size_t kTrailerOffset = (kPixelBytes + kPageBytes - 1) / kPageBytes * kPageBytes;
    std::string file(kTrailerOffset + kPageBytes, '\0');
    file.replace(0, kPixelBytes, kPixelBytes, static_cast<char>(fill));
    const std::string trailer = "PAVOSURF" + little(std::uint32_t{1}) + little(std::uint32_t{0x32767579}) +
                                little(kWidth) + little(kHeight) + little(std::uint32_t{2}) +
                                little(kBytesPerRow) + little(std::uint64_t{kPixelBytes});
    file.replace(kTrailerOffset, trailer.size(), trailer);

    UniqueFd descriptor(::memfd_create("by hand", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    EXPECT_EQ(::write(descriptor.get(), file.data(), file.size()), static_cast<ssize_t>(file.size()));
    EXPECT_EQ(::fcntl(descriptor.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL), 0);
    return descriptor;
}

}  // namespace pavo::test
