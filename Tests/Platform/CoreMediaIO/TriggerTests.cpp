// How the node asks PipeWire's data thread to draw.

#include "Tests/Platform/CoreMediaIO/CameraInPipeWire.h"
#include "Tests/Platform/CoreMediaIO/PickyClient.h"

#include <atomic>
#include <cerrno>

struct pw_stream;

namespace {

enum class Triggers { served, lost, refused };

std::atomic<Triggers> triggers = Triggers::served;
std::atomic<int> triggerCount = 0;

}  // namespace

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
int __real_pw_stream_trigger_process(pw_stream* stream);
int __wrap_pw_stream_trigger_process(pw_stream* stream)
{
    ++triggerCount;
    switch (triggers.load()) {
    case Triggers::lost:
        return 0;
    case Triggers::refused:
        return -EPIPE;
    case Triggers::served:
        break;
    }
    return __real_pw_stream_trigger_process(stream);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace cmio::test {
namespace {

class CameraTrigger : public CameraInPipeWire {
protected:
    void SetUp() override
    {
        CameraInPipeWire::SetUp();
        if (IsSkipped()) return;
        startSession(pavo::test::PipeWireSession::Daemon::absent);
        ::setenv("PAVO_PIPEWIRE", "embedded", 1);
        publish("pavo-0");
        client_ = std::make_unique<PickyClient>(browserHabits(), "pavo-0");
        picture_ = makeTwoColors();
        ASSERT_TRUE(pavo::test::waitFor([this] {
            sendOne();
            return client_->frameCount() > 0;
        }));
        ASSERT_TRUE(sendUntilDrawn());
        triggerCount = 0;
    }
    void TearDown() override
    {
        triggers = Triggers::served;
        client_.reset();
        CameraInPipeWire::TearDown();
    }

    cf::Ref<CMSampleBufferRef> sendOne() { return camera_->sendOnce(picture_.get(), 0); }
    // A sample that is drawn is let go; nothing waits then.
    bool sendUntilDrawn()
    {
        const auto sample = sendOne();
        return pavo::test::waitFor([&sample] { return CFGetRetainCount(sample.get()) == 1; },
                                   std::chrono::seconds(30));
    }
    void send(int count)
    {
        for (int index = 0; index < count; ++index)
            sendOne();
    }

    std::unique_ptr<PickyClient> client_;
    cf::Ref<CVPixelBufferRef> picture_;
};

TEST_F(CameraTrigger, IsOnceForASampleThatIsDrawnBeforeTheNext)
{
    for (int count = 1; count <= 20; ++count) {
        ASSERT_TRUE(sendUntilDrawn());
        EXPECT_EQ(triggerCount, count);
    }
}

TEST_F(CameraTrigger, IsSparedWhileOneIsUnderWay)
{
    triggers = Triggers::lost;  // as if the data thread had no time
    send(30);
    EXPECT_EQ(triggerCount, 1);
}

TEST_F(CameraTrigger, IsRepeatedInCaseItWasLost)
{
    triggers = Triggers::lost;
    // One, and then again after each thirty.
    send(1 + 10 * 30);
    EXPECT_EQ(triggerCount, 11);
    send(29);
    EXPECT_EQ(triggerCount, 11);
    triggers = Triggers::served;
    ASSERT_TRUE(sendUntilDrawn());
    EXPECT_EQ(triggerCount, 12);
    ASSERT_TRUE(sendUntilDrawn());
    EXPECT_EQ(triggerCount, 13);
}

TEST_F(CameraTrigger, IsTriedAgainAtOnceWhereItCouldNotBeSent)
{
    triggers = Triggers::refused;
    send(5);
    EXPECT_EQ(triggerCount, 5);
    triggers = Triggers::served;
    ASSERT_TRUE(sendUntilDrawn());
    EXPECT_EQ(triggerCount, 6);
}

}  // namespace
}  // namespace cmio::test
