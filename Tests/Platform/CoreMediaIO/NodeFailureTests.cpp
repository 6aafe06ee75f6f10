// What the camera says, and goes on with, where PipeWire refuses something.

#include "Platform/CoreMediaIO/linux/PipeWireHeaders.h"
#include "Tests/Platform/CoreMediaIO/ClientProcess.h"
#include "Tests/Platform/CoreMediaIO/Sources.h"
#include "Tests/Platform/CoreMediaIO/TestCamera.h"
#include "Tests/Support/CapturedLog.h"
#include "Tests/Support/Patience.h"
#include "Tests/Support/PipeWireSession.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <future>

namespace {

enum class Refusal { none, newStream, publication, link };

std::atomic<Refusal> refusal = Refusal::none;
std::atomic<int> refusals = 0;

bool isRefused(Refusal what)
{
    if (refusal != what) return false;
    ++refusals;
    return true;
}

// The camera's first stream, and how it hears of it. Complete once there is a listener.
struct CameraStream {
    pw_stream* stream = nullptr;
    const pw_stream_events* events = nullptr;
    void* data = nullptr;
};
CameraStream cameraStream;
std::atomic<int> listeners = 0;

}  // namespace

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
pw_stream* __real_pw_stream_new(pw_core* core, const char* name, pw_properties* properties);
pw_stream* __wrap_pw_stream_new(pw_core* core, const char* name, pw_properties* properties)
{
    if (!isRefused(Refusal::newStream)) return __real_pw_stream_new(core, name, properties);
    pw_properties_free(properties);
    errno = ENOMEM;
    return nullptr;
}

void __real_pw_stream_add_listener(pw_stream* stream, spa_hook* hook, const pw_stream_events* events,
                                   void* data);
void __wrap_pw_stream_add_listener(pw_stream* stream, spa_hook* hook, const pw_stream_events* events,
                                   void* data)
{
    if (listeners == 0) cameraStream = {stream, events, data};
    ++listeners;
    __real_pw_stream_add_listener(stream, hook, events, data);
}

int __real_pw_stream_connect(pw_stream* stream, pw_direction direction, std::uint32_t target,
                             pw_stream_flags flags, const spa_pod** params, std::uint32_t count);
int __wrap_pw_stream_connect(pw_stream* stream, pw_direction direction, std::uint32_t target,
                             pw_stream_flags flags, const spa_pod** params, std::uint32_t count)
{
    if (isRefused(Refusal::publication)) return -ENOTSUP;
    return __real_pw_stream_connect(stream, direction, target, flags, params, count);
}

pw_impl_link* __real_pw_context_create_link(pw_context* context, pw_impl_port* output, pw_impl_port* input,
                                            spa_pod* filter, pw_properties* properties, std::size_t size);
pw_impl_link* __wrap_pw_context_create_link(pw_context* context, pw_impl_port* output, pw_impl_port* input,
                                            spa_pod* filter, pw_properties* properties, std::size_t size)
{
    if (!isRefused(Refusal::link))
        return __real_pw_context_create_link(context, output, input, filter, properties, size);
    errno = ENOSPC;
    return nullptr;
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace cmio::test {
namespace {

using pavo::test::eventually;
using pavo::test::PipeWireSession;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::NiceMock;
using testing::Not;
using testing::Return;

constexpr const char* kCamera = "pavo-camera";

class NodeFailure : public testing::Test {
protected:
    void SetUp() override
    {
        std::string why;
        if (!PipeWireSession::isAvailable(&why)) GTEST_SKIP() << why;
        listeners = 0;
        refusals = 0;
    }
    void TearDown() override
    {
        camera_.reset();
        session_.reset();
        refusal = Refusal::none;
    }

    // `server`: the camera's PAVO_PIPEWIRE.
    void publish(const char* server = "embedded")
    {
        session_ = std::make_unique<PipeWireSession>(PipeWireSession::Daemon::absent);
        ASSERT_TRUE(session_->isReady());
        ::setenv("PAVO_PIPEWIRE", server, 1);
        ::setenv("PIPEWIRE_REMOTE", "pavo-0", 1);
        camera_ = std::make_unique<TestCamera>();
        camera_->publish();
    }
    static bool isPublished() { return PipeWireSession::node(kCamera).has_value(); }
    // With a client that has seen it.
    void publishAndSend()
    {
        publish();
        ASSERT_TRUE(eventually([] { return listeners > 0 && isPublished(); }));
        camera_->startSending(makePicture(kCVPixelFormatType_422YpCbCr8, 64, 48, {0, 0, 255}));
        client_ = std::make_unique<ClientProcess>();
        ASSERT_TRUE(client_->waitForFrames(1)) << client_->output();
    }
    // What the camera has written until it was gone.
    std::string wholeLog()
    {
        camera_.reset();
        return log_.end();
    }
    // On the thread that the stream belongs to.
    static void onTheLoop(std::function<void()> work)
    {
        std::packaged_task<void()> task(std::move(work));
        auto* context = pw_core_get_context(pw_stream_get_core(cameraStream.stream));
        const auto call = [](spa_loop*, bool, std::uint32_t, const void*, std::size_t, void* data) {
            (*static_cast<std::packaged_task<void()>*>(data))();
            return 0;
        };
        // Not one that waits, which would let go of the loop's lock that this thread does not have.
        pw_loop_invoke(pw_context_get_main_loop(context), call, 0, nullptr, 0, false, &task);
        task.get_future().wait();
    }

    pavo::test::CapturedLog log_;
    std::unique_ptr<PipeWireSession> session_;
    std::unique_ptr<TestCamera> camera_;
    std::unique_ptr<ClientProcess> client_;
};

TEST_F(NodeFailure, TellsThatThereIsNoStream)
{
    refusal = Refusal::newStream;
    publish();
    ASSERT_TRUE(eventually([] { return refusals > 0; }));
    EXPECT_THAT(wholeLog(), HasSubstr("Cannot create the camera's PipeWire stream: Cannot allocate memory"));
}

TEST_F(NodeFailure, TellsThatTheStreamIsNotPublished)
{
    refusal = Refusal::publication;
    publish();
    ASSERT_TRUE(eventually([] { return refusals > 0; }));
    EXPECT_THAT(wholeLog(), HasSubstr("Cannot publish the camera in PipeWire: Operation not supported"));
}

TEST_F(NodeFailure, PublishesTheCameraAgainThatPipeWireGaveUp)
{
    publishAndSend();
    onTheLoop([] { pw_stream_set_error(cameraStream.stream, -EIO, "%s", "no more of it"); });
    EXPECT_TRUE(eventually([] { return listeners > 1 && isPublished(); }));
    const ClientProcess next;
    EXPECT_TRUE(next.waitForFrames(3)) << next.output();
    EXPECT_THAT(wholeLog(),
                ContainsRegex("gave up the camera: no more of it(.|\n)*Connected to PipeWire \\(pavo-0\\)"));
}

TEST_F(NodeFailure, GoesOnAfterPipeWireHasRefusedAClient)
{
    publishAndSend();
    const auto before = PipeWireSession::node(kCamera);
    // As newer servers report it: an error, though the stream has none.
    onTheLoop([] {
        cameraStream.events->state_changed(cameraStream.data, PW_STREAM_STATE_STREAMING,
                                           PW_STREAM_STATE_ERROR, "no common format");
    });
    EXPECT_TRUE(client_->waitForMoreFrames(3));
    const auto after = PipeWireSession::node(kCamera);
    ASSERT_TRUE(before && after);
    EXPECT_EQ(after->id, before->id);
    const auto log = wholeLog();
    EXPECT_THAT(log, HasSubstr("PipeWire refused a client: no common format"));
    EXPECT_THAT(log, Not(HasSubstr("gave up")));
}

TEST_F(NodeFailure, ServesOthersThoughAClientCannotBeLinked)
{
    publish();
    ASSERT_TRUE(eventually([] { return isPublished(); }));
    camera_->startSending(makePicture(kCVPixelFormatType_422YpCbCr8, 64, 48, {0, 0, 255}));
    refusal = Refusal::link;
    const ClientProcess refused;
    ASSERT_TRUE(eventually([] { return refusals > 0; }));
    refusal = Refusal::none;
    const ClientProcess served;
    EXPECT_TRUE(served.waitForFrames(3)) << served.output();
    EXPECT_THAT(wholeLog(), HasSubstr("Cannot link a client to the camera: No space left on device"));
}

TEST_F(NodeFailure, DoesNotPublishAStreamWithoutASize)
{
    session_ = std::make_unique<PipeWireSession>(PipeWireSession::Daemon::absent);
    ASSERT_TRUE(session_->isReady());
    const auto clientQueue = dispatch::Queue::serial("test.clients");
    const auto source = std::make_shared<NiceMock<MockStreamSource>>();
    ON_CALL(*source, formats).WillByDefault(Return(std::vector<ExtensionStreamFormat>()));
    const auto stream = ExtensionStream::create("Bare", ns::UUID::random(), ExtensionStreamDirection::source,
                                                ExtensionStreamClockType::hostTime, source);
    const auto device = ExtensionDevice::create("Device", ns::UUID::random(), "Legacy", {});
    ASSERT_TRUE(device->addStream(stream, nullptr));
    auto provider = ExtensionProvider::create({}, clientQueue.get());
    ASSERT_TRUE(provider->addDevice(device, nullptr));
    ExtensionProvider::startServiceWithProvider(provider);
    // Published on this queue, and not for a provider that has gone.
    dispatch::sync(clientQueue.get(), [] {});
    provider.reset();
    dispatch::sync(clientQueue.get(), [] {});
    EXPECT_THAT(log_.end(), HasSubstr("Stream 'Bare' has no format with a size: it is not published"));
}

TEST_F(NodeFailure, TakesAnUnknownKindOfServerForAutomatic)
{
    publish("somewhere");
    EXPECT_TRUE(eventually([] { return isPublished(); }));
    EXPECT_THAT(wholeLog(), HasSubstr("PAVO_PIPEWIRE is 'somewhere', not auto, daemon or embedded"));
}

}  // namespace
}  // namespace cmio::test
