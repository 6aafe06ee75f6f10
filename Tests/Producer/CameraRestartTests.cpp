// A producer through many deaths of its camera, which is a process that is killed.
#include "Tests/Producer/ProducerFixture.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Wait.h"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <thread>

namespace pavo::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kRestarts = 50;
constexpr milliseconds kLongestRecovery(1000);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// Freed memory stays in a quarantine of 256 MiB, or in the shadow of what was used.
constexpr std::size_t kMostGrowthKiB = (256 + 16) * 1024;
#else
constexpr std::size_t kMostGrowthKiB = 16 * 1024;
#endif

// Sends as fast as its rate says until it is told to stop.
class SendingThread final {
public:
    explicit SendingThread(const Producer& producer) : thread_([this, &producer] { run(producer); }) {}
    ~SendingThread()
    {
        isStopped_ = true;
        thread_.join();
    }

private:
    void run(const Producer& producer) const
    {
        for (std::uint8_t shade = 0; !isStopped_; ++shade) {
            producer.waitForNextFrame();
            auto frame = producer.beginFrame();
            if (!frame) continue;
            std::memset(frame->row(0, 0), shade, frame->plane(0).stride);
            EXPECT_EQ(frame->send(), ProducerStatus::ok);
        }
    }

    std::atomic<bool> isStopped_ = false;
    std::thread thread_;
};

struct Usage {
    std::size_t descriptors = openDescriptorCount();
    std::size_t surfaceMappings = 0;
    std::size_t residentKiB = 0;
};

Usage usageNow()
{
    Usage usage;
    std::string line;
    for (std::ifstream maps("/proc/self/maps"); std::getline(maps, line);)
        if (line.find("memfd:pavo-surface") != std::string::npos) ++usage.surfaceMappings;
    for (std::ifstream status("/proc/self/status"); std::getline(status, line);)
        if (line.starts_with("VmRSS:")) usage.residentKiB = std::stoul(line.substr(6));
    return usage;
}

class CameraRestart : public ProducerFixture {
protected:
    ChildProcess start() const
    {
        std::ofstream(outputPath_, std::ios::trunc).close();
        return ChildProcess({PAVO_TEST_CAMERA, service}, outputPath_);
    }
    bool hasSaid(const std::string& text) const
    {
        return readFile(outputPath_).find(text) != std::string::npos;
    }
    // How long it takes until the camera says that. The machine may stand still meanwhile, which is nobody's
    // recovery: the longest time that this thread had to wait to look again is left out.
    std::optional<milliseconds> timeUntil(const std::string& text) const
    {
        const auto begin = Clock::now();
        auto last = begin;
        Clock::duration longestGap{};
        const bool wasSaid = waitFor([&] {
            const auto now = Clock::now();
            longestGap = std::max(longestGap, now - last);
            last = now;
            return hasSaid(text);
        });
        if (!wasSaid) return std::nullopt;
        return std::chrono::duration_cast<milliseconds>(last - begin - longestGap);
    }

    const TemporaryFolder folder_;
    const std::string outputPath_ = folder_.path() + "/camera.txt";
};

TEST_F(CameraRestart, AProducerIsBackWithinASecondEachTimeAndGrowsNoLarger)
{
    auto settings = config();
    settings.rate_numerator = 100;
    const auto producer = open(settings);
    const SendingThread sending(producer);
    Usage early;
    milliseconds longest{};
    for (int restart = 1; restart <= kRestarts; ++restart) {
        auto process = start();
        ASSERT_TRUE(waitFor([this] { return hasSaid("ready\n"); })) << "camera " << restart;
        const auto recovery = timeUntil("frame at 100\n");
        ASSERT_TRUE(recovery) << "camera " << restart << " has no frame: " << readFile(outputPath_);
        EXPECT_LT(*recovery, kLongestRecovery) << "camera " << restart;
        longest = std::max(longest, *recovery);
        process.end(SIGKILL);
        ASSERT_TRUE(waitFor([&producer] { return !producer.isConnected(); })) << "camera " << restart;
        if (restart == kRestarts / 4) early = usageNow();
    }
    const auto late = usageNow();
    EXPECT_GT(early.surfaceMappings, 0u);
    RecordProperty("longest_recovery_ms", static_cast<int>(longest.count()));
    EXPECT_EQ(producer.statistics().connections, static_cast<std::uint64_t>(kRestarts));
    EXPECT_EQ(late.surfaceMappings, early.surfaceMappings);
    EXPECT_LE(late.descriptors, early.descriptors + 2);
    EXPECT_LT(late.residentKiB, early.residentKiB + kMostGrowthKiB);
}

TEST_F(CameraRestart, ACameraThatDiesWithSurfacesInHandTakesNoneFromTheRing)
{
    auto settings = config();
    settings.surface_count = PAVO_MIN_SURFACES;
    const auto producer = open(settings);
    // The camera holds two surfaces when it is killed; more of those than there are surfaces die.
    for (int restart = 0; restart < 4; ++restart) {
        auto process = start();
        ASSERT_EQ(producer.waitUntilWanted(kLongNs), ProducerStatus::ok);
        for (int i = 0; i < 10; ++i) {
            auto frame = beginFrame(producer);
            ASSERT_TRUE(frame) << "frame " << i << " of camera " << restart;
            ASSERT_EQ(frame->send(), ProducerStatus::ok);
        }
        ASSERT_TRUE(waitFor([this] { return hasSaid("frame at 60\n"); }));
        process.end(SIGKILL);
        ASSERT_TRUE(waitForEvent(producer, PAVO_EVENT_LOST));
    }
}

TEST_F(CameraRestart, AFrameThatIsBeingDrawnWhileTheCameraDiesCanBeSentToTheNextOne)
{
    const auto producer = open(config());
    auto first = start();
    ASSERT_EQ(producer.waitUntilWanted(kLongNs), ProducerStatus::ok);
    auto frame = beginFrame(producer);
    ASSERT_TRUE(frame);
    first.end(SIGKILL);
    ASSERT_TRUE(waitForEvent(producer, PAVO_EVENT_LOST));
    ProducerStatus status{};
    EXPECT_FALSE(producer.beginFrame(&status));
    EXPECT_EQ(status, ProducerStatus::notWanted);

    auto second = start();
    ASSERT_EQ(producer.waitUntilWanted(kLongNs), ProducerStatus::ok);
    EXPECT_EQ(frame->send(), ProducerStatus::ok);
    EXPECT_TRUE(waitFor([this] { return hasSaid("frame at 60\n"); }));
}

TEST_F(CameraRestart, TellsOfALossAndOfTheWaitForTheNextCamera)
{
    const auto producer = open(config());
    auto process = start();
    const auto connected = waitForEvent(producer, PAVO_EVENT_CONNECTED);
    ASSERT_TRUE(connected);
    EXPECT_EQ(connected->pid, process.pid());
    process.end(SIGKILL);
    EXPECT_TRUE(waitForEvent(producer, PAVO_EVENT_LOST));
    EXPECT_TRUE(waitForEvent(producer, PAVO_EVENT_WAITING));
    EXPECT_FALSE(producer.isWanted());
}

}  // namespace
}  // namespace pavo::test
