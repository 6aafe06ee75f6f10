// OBS shows and records the camera, which it gets through the camera portal.

#include "Tests/Clients/CameraPortal.h"
#include "Tests/Clients/ObsStudio.h"
#include "Tests/Clients/VideoClient.h"
#include "Tests/EndToEnd/WholeCamera.h"

#include <cstdio>

namespace pavo::test {
namespace {

// OBS scales the picture and makes lossy video of it, besides what every client rounds.
constexpr int kRecordedColourTolerance = 2 * kColourTolerance;

bool showsPattern(const ClientPicture& picture)
{
    return counterOf(picture).has_value();
}

class CameraInObs : public WholeCamera {
protected:
    CameraInObs() : WholeCamera(Server::daemon) {}
    void SetUp() override
    {
        std::string why;
        if (!ObsStudio::isAvailable(&why) || !CameraPortal::isAvailable(&why)) GTEST_SKIP() << why;
        WholeCamera::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        portal_ = std::make_unique<CameraPortal>(folder());
        ASSERT_TRUE(portal_->isReady()) << readFile(folder() + "/portal.log");
        obs_ = std::make_unique<ObsStudio>(folder(), VideoClient::kWidth, VideoClient::kHeight);
        ASSERT_GE(obs_->pid(), 0) << readFile(folder() + "/screen.log");
        recording_ = std::make_unique<VideoClient>(
            std::vector<std::string>{"ffmpeg", "-nostdin", "-v", "error", "-i", obs_->recording(), "-map",
                                     "0:v", "-pix_fmt", "rgb24", "-f", "rawvideo", "-"},
            folder() + "/ffmpeg.log");
    }
    void TearDown() override
    {
        if (HasFailure() && obs_) ADD_FAILURE() << "OBS wrote:\n" << obs_->log();
        obs_.reset();
        recording_.reset();
        portal_.reset();
        WholeCamera::TearDown();
    }

    ObsStudio& obs() { return *obs_; }
    // What OBS records.
    VideoClient& recording() { return *recording_; }
    CameraPortal& portal() { return *portal_; }

private:
    std::unique_ptr<CameraPortal> portal_;
    std::unique_ptr<ObsStudio> obs_;
    std::unique_ptr<VideoClient> recording_;
};

TEST_F(CameraInObs, RecordsProducersComeAndGoInOneSource)
{
    const ClientPicture before = recording().waitFor(isPlaceholder);
    ASSERT_FALSE(before.rgb.empty()) << recording().log();
    keepPicture(before, "obs-placeholder");
    EXPECT_EQ(portal().questions(), 1);

    PavoProcess producer = produce();
    const ClientPicture during = recording().waitFor(showsPattern);
    ASSERT_FALSE(during.rgb.empty()) << recording().log();
    keepPicture(during, "obs-pattern");
    EXPECT_LE(worstBarError(during), kRecordedColourTolerance);
    const std::size_t first = recording().frameCount();
    ASSERT_TRUE(recording().waitForFrames(60)) << recording().log();
    std::printf("OBS records %.1f frames a second\n", recording().rateSince(first));
    EXPECT_GT(counterOf(recording().waitFor(showsPattern)), counterOf(during));
    // The producer knows by whom it is seen, though the portal opened the camera for OBS.
    const auto watcher = producer.lastReport("watcherAdded");
    ASSERT_FALSE(watcher.is_null()) << testing::PrintToString(producer.story());
    EXPECT_EQ(watcher["pid"], obs().pid());
    EXPECT_EQ(producer.end(SIGTERM), 0);

    const ClientPicture after = recording().waitFor(isPlaceholder);
    EXPECT_FALSE(after.rgb.empty()) << recording().log();
    keepPicture(after, "obs-placeholder-again");
    EXPECT_TRUE(obs().isRunning());
    obs().end();
    EXPECT_TRUE(waitForRemoved(watcher["pid"]));
}

}  // namespace
}  // namespace pavo::test
