#pragma once

#include "Tests/Platform/CoreMediaIO/PickyClient.h"
#include "Tests/Platform/CoreMediaIO/Pictures.h"
#include "Tests/Platform/CoreMediaIO/TestCamera.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/PipeWireSession.h"
#include "Tests/Support/Wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace cmio::test {

inline constexpr Rgb kRed{255, 0, 0};
inline constexpr Rgb kGreen{0, 255, 0};
inline constexpr Rgb kBlue{0, 0, 255};
inline constexpr const char* kNode = "pavo-camera";

// Red above, green below.
inline cf::Ref<CVPixelBufferRef> makeTwoColors(OSType format = kCVPixelFormatType_422YpCbCr8,
                                               bool inSurface = false)
{
    auto picture = makePicture(format, 1920, 1080, kRed, inSurface);
    fillRectangle(picture.get(), 0, 540, 1920, 540, kGreen);
    return picture;
}

// A camera of this process in a session of its own. In the end nothing of it may be left open.
class CameraInPipeWire : public testing::Test {
protected:
    using Processes = std::vector<std::int32_t>;

    void SetUp() override
    {
        std::string why;
        if (!pavo::test::PipeWireSession::isAvailable(&why)) GTEST_SKIP() << why;
    }
    void TearDown() override
    {
        camera_.reset();
        if (session_) {
            EXPECT_EQ(pavo::test::openDescriptorCount(), descriptorsAtPublish_);
        }
        session_.reset();
    }

    void
    startSession(pavo::test::PipeWireSession::Daemon daemon = pavo::test::PipeWireSession::Daemon::running)
    {
        session_ = std::make_unique<pavo::test::PipeWireSession>(daemon);
        ASSERT_TRUE(session_->isReady());
    }
    // A camera that is published; what is sent is up to the test.
    void publish(const std::string& remote = {})
    {
        descriptorsAtPublish_ = pavo::test::openDescriptorCount();
        camera_ = std::make_unique<TestCamera>();
        camera_->publish();
        ASSERT_TRUE(pavo::test::waitFor(
            [&remote] { return pavo::test::PipeWireSession::node(kNode, remote).has_value(); }));
    }
    // One that is published in a session.
    void startCamera()
    {
        startSession();
        publish();
    }
    void send() { camera_->startSending(makeTwoColors()); }
    bool waitForProcesses(Processes expected, std::chrono::seconds deadline = std::chrono::seconds(10)) const
    {
        const auto isThere = [&] {
            auto actual = camera_->streamingProcesses();
            std::sort(actual.begin(), actual.end());
            std::sort(expected.begin(), expected.end());
            return actual == expected;
        };
        return pavo::test::waitFor(isThere, deadline);
    }
    // Of makeTwoColors, in whichever format the client got it.
    static void expectRed(const PickyClient& client)
    {
        const auto frame = client.lastFrame();
        ASSERT_TRUE(frame && frame->firstColor);
        const auto red = toVideoRange(kRed);
        EXPECT_NEAR(frame->firstColor->y, red.y, 2);
        EXPECT_NEAR(frame->firstColor->cb, red.cb, 2);
        EXPECT_NEAR(frame->firstColor->cr, red.cr, 2);
    }
    bool waitForEvents(std::size_t count) const
    {
        return pavo::test::waitFor([this, count] { return camera_->events().size() >= count; });
    }

    std::size_t descriptorsAtPublish_ = 0;
    std::unique_ptr<pavo::test::PipeWireSession> session_;
    std::unique_ptr<TestCamera> camera_;
};

}  // namespace cmio::test
