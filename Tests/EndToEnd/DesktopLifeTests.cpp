// What a desktop does to a camera that runs for weeks: PipeWire ends and comes back, the machine sleeps.

#include "Tests/EndToEnd/DaemonObserver.h"
#include "Tests/EndToEnd/WholeCamera.h"
#include "Tests/Support/ProcessFacts.h"
#include "Tools/CameraClient.h"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

namespace pavo::test {
namespace {

using Clock = std::chrono::steady_clock;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kRestarts = 10;
// They make a camera several times slower.
constexpr std::chrono::seconds kLongestAbsence(5);
// Sanitizers keep what is freed.
constexpr bool kIsMemoryMeasured = false;
#else
constexpr std::size_t kRestarts = 100;
constexpr std::chrono::seconds kLongestAbsence(1);
constexpr bool kIsMemoryMeasured = true;
#endif

// Far more than a busy machine takes, far less than the clock jumps by.
constexpr std::int64_t kLongestPauseNs = 5'000'000'000;

std::int64_t milliseconds(Clock::duration duration)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
}

class DesktopLife : public WholeCamera {
protected:
    DesktopLife() : WholeCamera(Server::daemon) {}

    // PipeWire crashes and is started again. Gives back how long it answered without the camera, which is the
    // time that the camera took for itself; a client has had frames then.
    std::optional<Clock::duration> restartPipeWire(DaemonObserver& observer)
    {
        session().killDaemon();
        if (!session().startPipeWire()) return std::nullopt;
        const auto times = observer.observe();
        if (!times) return std::nullopt;
        std::atomic<int> frames = 0;
        tools::CameraClient::Options options;
        options.deadline = kPatience;
        options.onFrame = [&frames](const tools::CameraFrame&) { ++frames; };
        tools::CameraClient client(options);
        if (client.start()) return std::nullopt;
        if (!session().startSessionManager() || !eventually([&frames] { return frames >= 2; }))
            return std::nullopt;
        return times->seen - times->answered;
    }
};

TEST_F(DesktopLife, OutlivesPipeWireAHundredTimes)
{
    PavoProcess producer = produce();
    DaemonObserver observer("pavo-camera");
    const pid_t process = camera().pid();
    std::vector<std::int64_t> missing;
    std::size_t descriptors = 0;
    std::uint64_t memory = 0;
    for (std::size_t round = 0; round < kRestarts; ++round) {
        const auto time = restartPipeWire(observer);
        ASSERT_TRUE(time) << "in round " << round;
        missing.push_back(milliseconds(*time));
        EXPECT_LE(missing.back(), milliseconds(kLongestAbsence)) << "in round " << round;
        // The first rounds open and allocate what is kept.
        if (round != kRestarts / 5) continue;
        ASSERT_TRUE(eventually([&] { return camera().countWith("PipeWire has gone") == round + 1; }));
        descriptors = openDescriptorCount(process);
        memory = privateMemory(process);
    }
    std::sort(missing.begin(), missing.end());
    RecordProperty("MedianMilliseconds", static_cast<int>(missing[missing.size() / 2]));
    RecordProperty("LongestMilliseconds", static_cast<int>(missing.back()));
    EXPECT_TRUE(eventually([&] { return openDescriptorCount(process) <= descriptors; }))
        << openDescriptorCount(process) << " descriptors, not " << descriptors;
    constexpr std::uint64_t kNoise = 1024 * 1024;
    if (kIsMemoryMeasured) {
        EXPECT_TRUE(eventually([&] { return privateMemory(process) <= memory + kNoise; }))
            << privateMemory(process) << " bytes, not " << memory;
        RecordProperty("GrowthBytes",
                       static_cast<int>(static_cast<std::int64_t>(privateMemory(process) - memory)));
    }
    // Of all this the producer has seen nothing but clients that came and went.
    EXPECT_TRUE(producer.isRunning());
    EXPECT_EQ(camera().countWith("Connection died"), 0U);
    const auto& story = producer.story();
    EXPECT_EQ(std::count(story.begin(), story.end(), "connected " + std::to_string(process)), 1);
    EXPECT_EQ(std::count(story.begin(), story.end(), "lost"), 0);
    PavoProcess client = watch();
    EXPECT_TRUE(seesProducer(client));
}

// A process that is stopped is as one on a machine that sleeps: it goes on with everything overdue.
class Sleep : public WholeCamera {
protected:
    static constexpr std::chrono::seconds kLength{3};

    void sleepAndWake()
    {
        camera().signal(SIGSTOP);
        const auto end = Clock::now() + kLength;
        ASSERT_TRUE(eventually([end] { return Clock::now() >= end; }));
        camera().signal(SIGCONT);
    }

    // `overdue`: how many frames may come at once after the sleep.
    static void expectFramesAtTheirPace(PavoProcess& client, std::size_t overdue)
    {
        const auto& frames = client.frames();
        std::size_t awake = 0;
        for (std::size_t index = 1; index < frames.size(); ++index) {
            ASSERT_GT(frames[index].sentNs, frames[index - 1].sentNs) << index;
            ASSERT_GT(frames[index].sequence, frames[index - 1].sequence) << index;
            if (frames[index].sentNs - frames[index - 1].sentNs > (kLength.count() - 1) * 1'000'000'000LL)
                awake = index;
        }
        ASSERT_GT(awake, 0U) << "no gap";
        constexpr std::int64_t kHalfSecondNs = 500'000'000;
        const auto soon = std::count_if(
            frames.begin() + static_cast<std::ptrdiff_t>(awake), frames.end(),
            [&](const ViewedFrame& frame) { return frame.sentNs - frames[awake].sentNs < kHalfSecondNs; });
        // Half a second's, and one at each end.
        EXPECT_LE(static_cast<std::size_t>(soon), 30 + 2 + overdue);
    }
};

TEST_F(Sleep, IsFollowedByNoBurstOfPlaceholders)
{
    PavoProcess client = watch();
    ASSERT_TRUE(seesPlaceholder(client, 30));
    sleepAndWake();
    ASSERT_TRUE(seesPlaceholder(client, 60));
    // The timer may be a fire behind.
    expectFramesAtTheirPace(client, 1);
}

TEST_F(Sleep, IsFollowedByNoMoreFramesOfAProducerThanItHasSurfaces)
{
    PavoProcess client = watch();
    ASSERT_TRUE(seesPlaceholder(client));
    PavoProcess producer = produce();
    ASSERT_TRUE(seesProducer(client, 30));
    sleepAndWake();
    ASSERT_TRUE(seesProducer(client, 60));
    constexpr std::size_t kProducersRing = 8;
    expectFramesAtTheirPace(client, kProducersRing);
    EXPECT_EQ(camera().countWith("Connection died"), 0U);
}

// The wall clock of every program of the session, as the test sets it: after a sleep, or when the time of day
// is corrected, it jumps while CLOCK_MONOTONIC goes on.
class WallClock : public WholeCamera {
protected:
    WallClock() : WholeCamera(Server::daemon) {}

    void SetUp() override
    {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "Sanitizers want to be a program's first library";
#endif
        const std::string library = "/usr/lib/" PAVO_LIBRARY_ARCHITECTURE "/faketime/libfaketimeMT.so.1";
        if (!std::filesystem::exists(library)) GTEST_SKIP() << library << " is not installed";
        setAhead("+0");
        variables_ = {{"LD_PRELOAD", library},
                      {"FAKETIME_TIMESTAMP_FILE", file()},
                      {"FAKETIME_NO_CACHE", "1"},
                      {"FAKETIME_DONT_FAKE_MONOTONIC", "1"}};
        for (const auto& [name, value] : variables_)
            ::setenv(name.c_str(), value.c_str(), 1);
        WholeCamera::SetUp();
    }

    void TearDown() override
    {
        for (const auto& [name, value] : variables_)
            ::unsetenv(name.c_str());
        WholeCamera::TearDown();
    }

    // As "+8h".
    void setAhead(const std::string& time)
    {
        const std::string next = file() + ".next";
        std::ofstream(next) << time << '\n';
        std::filesystem::rename(next, file());
    }

    // So far from the test's own time.
    bool hasLoggedAhead(std::chrono::days ahead)
    {
        const auto expected = Clock::now().time_since_epoch() + ahead;
        const auto& log = camera().log();
        return std::any_of(log.begin(), log.end(), [expected](const LogLine& line) {
            return std::chrono::abs(std::chrono::nanoseconds(line.timeNs) - expected) < std::chrono::hours(1);
        });
    }

private:
    std::string file() const { return files_.path() + "/clock"; }

    const TemporaryFolder files_;
    std::map<std::string, std::string> variables_;
};

TEST_F(WallClock, MayJumpByDaysWithoutAFrameTooFewOrTooMany)
{
    PavoProcess client = watch();
    ASSERT_TRUE(seesPlaceholder(client, 30));
    for (const int ahead : {3, -3}) {
        setAhead((ahead > 0 ? "+" : "") + std::to_string(ahead) + "d");
        ASSERT_TRUE(seesPlaceholder(client, 60));
        PavoProcess producer = produce();
        ASSERT_TRUE(seesProducer(client, 60));
        EXPECT_TRUE(eventually([&] { return hasLoggedAhead(std::chrono::days(ahead)); }))
            << "the clock has not jumped";
        ASSERT_EQ(producer.end(SIGTERM), 0);
    }
    ASSERT_TRUE(seesPlaceholder(client, 60));
    const auto& frames = client.frames();
    for (std::size_t index = 1; index < frames.size(); ++index) {
        ASSERT_GT(frames[index].sentNs, frames[index - 1].sentNs) << index;
        ASSERT_LT(frames[index].sentNs - frames[index - 1].sentNs, kLongestPauseNs) << index;
    }
    const double seconds = static_cast<double>(frames.back().sentNs - frames.front().sentNs) / 1e9;
    EXPECT_LE(static_cast<double>(frames.size()), 61 * seconds + 10) << "a burst";
}

}  // namespace
}  // namespace pavo::test
