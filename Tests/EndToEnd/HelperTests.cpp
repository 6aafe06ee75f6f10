// The first client's start turns to the privileged helper, and streams whatever that does.

#include "Tests/EndToEnd/WholeCamera.h"
#include "Tests/Helper/HelperProcess.h"

#include <signal.h>

#include <algorithm>
#include <cstdio>

namespace pavo::test {
namespace {

using Calls = std::vector<std::string>;

constexpr const char* kStarting = "Starting stream! Yay :)";
constexpr const char* kStopping = "Stopping stream! Bye :'(";
constexpr const char* kClosing = "Closing Bosun connection for deinit";

class CameraWithHelper : public WholeCamera {
protected:
    // How long the last start had to do with the helper, by the camera's log.
    double lastHelperMilliseconds()
    {
        std::int64_t beginNs = 0;
        std::int64_t endNs = 0;
        for (const auto& line : camera().log()) {
            if (line.text == kStarting) beginNs = line.timeNs;
            if (line.text == kClosing) endNs = line.timeNs;
        }
        return static_cast<double>(endNs - beginNs) / 1e6;
    }
    // A start with that helper: frames come, and soon.
    void expectStart(const std::string& name)
    {
        PavoProcess client = watch();
        EXPECT_TRUE(seesPlaceholder(client)) << name;
        ASSERT_TRUE(camera().waitForLog(kClosing, ++startCount_)) << name;
        const double took = lastHelperMilliseconds();
        std::printf("%s helper: the start spent %.3f ms on it\n", name.c_str(), took);
        EXPECT_GE(took, 0.0) << name;
        // Waiting for some of them would take for ever; a busy machine may take a while.
        EXPECT_LT(took, 4000.0) << name;
        EXPECT_EQ(client.end(SIGTERM), 0);
        ASSERT_TRUE(camera().waitForLog(kStopping, startCount_)) << name;
    }
    void expectNothingInstalled()
    {
        EXPECT_EQ(camera().countWith("Checking Bosun"), 0U);
        EXPECT_EQ(camera().countWith("Installing"), 0U);
    }

private:
    std::size_t startCount_ = 0;
};

TEST_F(CameraWithHelper, EachFirstClientReachesTheHelperOnce)
{
    HelperProcess helper("sound");
    ASSERT_TRUE(helper.isReady());
    for (std::size_t round = 1; round <= 3; ++round) {
        PavoProcess first = watch();
        ASSERT_TRUE(seesPlaceholder(first));
        PavoProcess second = watch();
        ASSERT_TRUE(seesPlaceholder(second));
        EXPECT_EQ(first.end(SIGTERM), 0);
        EXPECT_TRUE(seesPlaceholder(second));
        EXPECT_EQ(second.end(SIGTERM), 0);
        ASSERT_TRUE(camera().waitForLog(kStopping, round));
        ASSERT_TRUE(helper.waitForCalls(round));
        EXPECT_EQ(helper.calls(), Calls(round, "launchStudioIfNeeded"));
    }
    expectNothingInstalled();
}

TEST_F(CameraWithHelper, StartsWithoutAHelperAndWithEveryBadOne)
{
    expectStart("absent");
    for (const char* behaviour : {"silent", "dying", "unreading", "unaccepting"}) {
        HelperProcess helper(behaviour);
        ASSERT_TRUE(helper.isReady()) << behaviour;
        expectStart(behaviour);
    }
    expectNothingInstalled();
}

TEST_F(CameraWithHelper, AHelperThatDoesNotReadKeepsNoFrameFromAClient)
{
    HelperProcess helper("unaccepting");
    ASSERT_TRUE(helper.isReady());
    PavoProcess first = watch();
    ASSERT_TRUE(seesPlaceholder(first));
    PavoProcess second = watch();
    ASSERT_TRUE(seesPlaceholder(second, 120));
    EXPECT_EQ(first.end(SIGTERM), 0);
    ASSERT_TRUE(seesPlaceholder(second, 60));

    const auto& frames = second.frames();
    std::int64_t longestNs = 0;
    for (std::size_t i = 1; i < frames.size(); ++i)
        longestNs = std::max(longestNs, frames[i].sentNs - frames[i - 1].sentNs);
    std::printf("beside a helper that does not read: longest gap %.1f ms\n",
                static_cast<double>(longestNs) / 1e6);
    // Whoever waited for this helper would wait for five seconds; a busy machine takes less.
    EXPECT_LT(longestNs, 1'000'000'000);
#ifndef __SANITIZE_THREAD__
    // The camera's frames were the client's, but for one that a busy machine may be late for. (With that
    // sanitizer drawing a frame takes longer than the frame.)
    EXPECT_GE(frames.size() * 20, (frames.back().sequence - frames.front().sequence + 1) * 19);
#endif
}

}  // namespace
}  // namespace pavo::test
