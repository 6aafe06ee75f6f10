// What the camera takes from the machine: nothing while it is idle, and of everything else no more than once.

#include "Tests/EndToEnd/WholeCamera.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/ProcessFacts.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <set>

namespace pavo::test {
namespace {

using Clock = std::chrono::steady_clock;
using Mappings = std::map<std::string, std::uint64_t>;
// The sanitizer has a thread of its own in each process, which wakes ten times a second. 60 a second would be
// the placeholder's timer.
#ifdef __SANITIZE_THREAD__
constexpr std::uint64_t kForeignWakeUpsPerSecond = 12;
#else
constexpr std::uint64_t kForeignWakeUpsPerSecond = 0;
#endif

// How many surfaces a producer has at most.
constexpr std::size_t kProducersRing = 8;

class CameraResources : public WholeCamera {
protected:
    Mappings surfaces() { return mappingsOf(camera().pid(), "/memfd:pavo-surface"); }

    // A second has passed without a wake-up that is ours.
    bool waitUntilQuiet()
    {
        auto last = voluntarySwitches(camera().pid());
        auto since = Clock::now();
        return eventually([&] {
            const bool isSecondOver = Clock::now() - since >= std::chrono::seconds(1);
            const auto now = voluntarySwitches(camera().pid());
            if (wakeUpsBetween(last, now) > kForeignWakeUpsPerSecond) {
                last = now;
                since = Clock::now();
                return false;
            }
            return isSecondOver;
        });
    }
};

std::set<std::uint64_t> inodesOf(const Mappings& mappings)
{
    std::set<std::uint64_t> inodes;
    for (const auto& [range, inode] : mappings)
        inodes.insert(inode);
    return inodes;
}

TEST_F(CameraResources, UsesNoTimeWhileNobodyWatches)
{
    // A client has come and gone, and a producer waits: everything has run once.
    PavoProcess client = watch();
    ASSERT_TRUE(seesPlaceholder(client));
    PavoProcess producer = produce();
    ASSERT_TRUE(seesProducer(client));
    const pid_t clientProcess = client.pid();
    EXPECT_EQ(client.end(SIGTERM), 0);
    ASSERT_TRUE(waitForRemoved(clientProcess));
    ASSERT_TRUE(waitUntilQuiet());

    constexpr std::chrono::seconds kWhile(10);
    const auto log = camera().log().size();
    const auto ticks = processorTicks(camera().pid());
    const auto switches = voluntarySwitches(camera().pid());
    const auto end = Clock::now() + kWhile;
    ASSERT_TRUE(eventually([end] { return Clock::now() >= end; }));
    // One tick may come from rounding.
    EXPECT_LE(processorTicks(camera().pid()) - ticks, 1U);
    EXPECT_LE(wakeUpsBetween(switches, voluntarySwitches(camera().pid())),
              kForeignWakeUpsPerSecond * kWhile.count());
    EXPECT_EQ(camera().log().size(), log);
    EXPECT_TRUE(camera().isRunning());
}

// Sanitizers keep several times as much for themselves.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(CameraResources, TakesFortyMebibytesAtMostWithOneClient)
{
    // Code as the compiler first writes it is longer.
#ifdef __OPTIMIZE__
    constexpr std::uint64_t kLimit = 40ULL << 20U;
#else
    constexpr std::uint64_t kLimit = 44ULL << 20U;
#endif
    PavoProcess client = watch();
    ASSERT_TRUE(seesPlaceholder(client, 120));
    EXPECT_LE(residentMemory(camera().pid()), kLimit);
}
#endif

TEST_F(CameraResources, LoadsNothingThatOnlyOtherCommandsUse)
{
    ASSERT_FALSE(mappingsOf(camera().pid(), "/libPavoPlatform.so").empty());
    for (const char* library :
         {"/libcairo.", "/libchafa.", "/libmicrohttpd.", "/libturbojpeg.", "/libgnutls."})
        EXPECT_EQ(mappingsOf(camera().pid(), library), Mappings()) << library;
}

TEST_F(CameraResources, RendersThePlaceholderOnce)
{
    for (int round = 0; round < 3; ++round) {
        PavoProcess client = watch();
        ASSERT_TRUE(seesPlaceholder(client, 30));
        PavoProcess producer = produce();
        ASSERT_TRUE(seesProducer(client));
        producer.end(SIGKILL);
        ASSERT_TRUE(seesPlaceholder(client, 10));
    }
    EXPECT_EQ(camera().countOf("Generating default frame for size: (1920.0, 1080.0)"), 1U);
    EXPECT_EQ(camera().countWith("Generating default frame"), 1U);
}

TEST_F(CameraResources, MapsEachSurfaceOfTheProducerOnceAndCopiesNone)
{
    PavoProcess client = watch();
    ASSERT_TRUE(seesPlaceholder(client));
    const auto placeholder = surfaces();
    EXPECT_EQ(placeholder.size(), 1U);
    PavoProcess producer = produce();
    ASSERT_TRUE(seesProducer(client, 120));
    const auto before = surfaces();
    const auto descriptors = openDescriptorCount(camera().pid());
    ASSERT_TRUE(seesProducer(client, 300));
    // All are still at the same addresses: none was mapped again. A producer that is short of a surface may
    // have made one more.
    const auto after = surfaces();
    EXPECT_TRUE(std::includes(after.begin(), after.end(), before.begin(), before.end()));
    EXPECT_LE(after.size(), placeholder.size() + kProducersRing);
    EXPECT_EQ(inodesOf(after).size(), after.size());
    // A message under way holds its surface's descriptor for a moment.
    EXPECT_TRUE(eventually([&] {
        return openDescriptorCount(camera().pid()) <= descriptors + (surfaces().size() - before.size());
    }));
    // And they are the producer's own memory, not the camera's.
    auto known = inodesOf(mappingsOf(producer.pid(), "/memfd:pavo-surface"));
    EXPECT_GT(known.size(), 1U);
    known.merge(inodesOf(placeholder));
    for (const auto inode : inodesOf(after))
        EXPECT_TRUE(known.contains(inode)) << inode;
}

TEST_F(CameraResources, KeepsNothingOfThirtyProducers)
{
    PavoProcess client = watch();
    ASSERT_TRUE(seesPlaceholder(client));
    std::size_t descriptors = 0;
    Mappings mapped;
    for (std::size_t round = 1; round <= 31; ++round) {
        PavoProcess producer = produce();
        ASSERT_TRUE(seesProducer(client, 2));
        producer.end(SIGKILL);
        ASSERT_TRUE(waitForLosses(round));
        if (round > 1) continue;
        // The first one opens what the camera keeps.
        ASSERT_TRUE(seesPlaceholder(client));
        ASSERT_TRUE(eventually([this] { return surfaces().size() == 1; }));
        mapped = surfaces();
        descriptors = openDescriptorCount(camera().pid());
    }
    ASSERT_TRUE(seesPlaceholder(client));
    EXPECT_TRUE(eventually([&] { return surfaces() == mapped; }));
    EXPECT_TRUE(eventually([&] { return openDescriptorCount(camera().pid()) <= descriptors; }))
        << openDescriptorCount(camera().pid()) << " descriptors, not " << descriptors;
}

}  // namespace
}  // namespace pavo::test
