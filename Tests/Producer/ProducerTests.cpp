// Producers in this process, by way of the library's public interface, with a camera that is also here but
// shares nothing with the library: messages and surfaces go through the system.
#include "Tests/Producer/ProducerFixture.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Wait.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <set>
#include <thread>

namespace pavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using ProducerTests = ProducerFixture;

TEST_F(ProducerTests, ConnectsToACameraThatIsThere)
{
    startCamera(false);
    const auto producer = open(config());

    const auto connected = waitForEvent(producer, PAVO_EVENT_CONNECTED);
    ASSERT_TRUE(connected);
    EXPECT_EQ(connected->pid, ::getpid());
    EXPECT_TRUE(waitForEvent(producer, PAVO_EVENT_UNSUBSCRIBED));
    EXPECT_TRUE(producer.isConnected());
    EXPECT_FALSE(producer.isWanted());
}

TEST_F(ProducerTests, WaitsForACameraThatComesLaterAndSaysSoOnce)
{
    const auto producer = open(config());
    ASSERT_TRUE(waitForEvent(producer, PAVO_EVENT_WAITING));
    EXPECT_FALSE(producer.isConnected());
    startCamera();

    pavo_event next{};
    ASSERT_EQ(producer.nextEvent(next, kLongNs), ProducerStatus::ok);
    EXPECT_EQ(next.type, static_cast<std::uint32_t>(PAVO_EVENT_CONNECTED));
    EXPECT_EQ(producer.waitUntilWanted(kLongNs), ProducerStatus::ok);
}

TEST_F(ProducerTests, HearsSubscriptionsAndTheirEnd)
{
    startCamera(false);
    const auto producer = open(config());
    ASSERT_TRUE(waitForEvent(producer, PAVO_EVENT_UNSUBSCRIBED));
    camera->setSubscribed(true);
    EXPECT_TRUE(waitForEvent(producer, PAVO_EVENT_SUBSCRIBED));
    EXPECT_TRUE(producer.isWanted());
    camera->setSubscribed(false);
    EXPECT_TRUE(waitForEvent(producer, PAVO_EVENT_UNSUBSCRIBED));
    EXPECT_FALSE(producer.isWanted());
}

TEST_F(ProducerTests, HearsOfEachWatcherOnceAndKeepsTheList)
{
    const auto producer = openWanted();
    ASSERT_TRUE(camera->reportWatcher(17, true));
    ASSERT_TRUE(camera->reportWatcher(17, true));
    ASSERT_TRUE(camera->reportWatcher(23, true));
    ASSERT_TRUE(camera->reportWatcher(99, false));
    EXPECT_EQ(waitForEvent(producer, PAVO_EVENT_WATCHER_ADDED)->pid, 17);
    EXPECT_EQ(waitForEvent(producer, PAVO_EVENT_WATCHER_ADDED)->pid, 23);
    EXPECT_THAT(producer.watchers(), ElementsAre(17, 23));

    ASSERT_TRUE(camera->reportWatcher(17, false));
    EXPECT_EQ(waitForEvent(producer, PAVO_EVENT_WATCHER_REMOVED)->pid, 17);
    EXPECT_THAT(producer.watchers(), ElementsAre(23));
}

TEST_F(ProducerTests, TellsHowManyWatchersThereAreWhereThereIsRoomForFewer)
{
    const auto producer = openWanted();
    for (const std::int32_t pid : {1, 2, 3})
        camera->reportWatcher(pid, true);
    ASSERT_TRUE(waitFor([&producer] { return producer.watchers().size() == 3; }));

    std::array<std::int32_t, 2> pids{};
    std::size_t count = 0;
    EXPECT_EQ(pavo_producer_get_watchers(producer.handle(), pids.data(), pids.size(), &count), PAVO_OK);
    EXPECT_EQ(count, 3u);
    EXPECT_THAT(pids, ElementsAre(1, 2));
    EXPECT_EQ(pavo_producer_get_watchers(producer.handle(), nullptr, 0, &count), PAVO_OK);
    EXPECT_EQ(count, 3u);
}

TEST_F(ProducerTests, AFrameArrivesWithItsPixelsItsFormatAndItsTiming)
{
    const auto producer = openWanted(config(PAVO_UYVY, 32, 16));
    auto frame = beginFrame(producer);
    ASSERT_TRUE(frame);
    for (std::size_t y = 0; y < 16; ++y)
        std::memset(frame->row(0, y), static_cast<int>(y + 1), 64);
    ASSERT_EQ(frame->send({1'234'567'890, 40'000'000}), ProducerStatus::ok);
    ASSERT_TRUE(waitFor([this] { return camera->frameCount() == 1; }));

    const auto received = camera->latestFrame();
    ASSERT_TRUE(received);
    EXPECT_EQ(IOSurfaceGetWidth(received->surface.get()), 32u);
    EXPECT_EQ(IOSurfaceGetHeight(received->surface.get()), 16u);
    EXPECT_EQ(IOSurfaceGetPixelFormat(received->surface.get()), 0x32767579u);
    const auto* pixels = static_cast<const std::uint8_t*>(IOSurfaceGetBaseAddress(received->surface.get()));
    EXPECT_EQ(pixels[0], 1);
    EXPECT_EQ(pixels[15 * IOSurfaceGetBytesPerRow(received->surface.get()) + 63], 16);
    EXPECT_EQ(CMTimeCompare(received->timing.presentationTimeStamp, CMTimeMake(1'234'567'890, 1'000'000'000)),
              0);
    EXPECT_EQ(CMTimeCompare(received->timing.duration, CMTimeMake(1, 25)), 0);
}

TEST_F(ProducerTests, AFrameWithoutTimingIsOfNowAndLastsAsLongAsTheRateSays)
{
    auto settings = config();
    settings.rate_numerator = 30000;
    settings.rate_denominator = 1001;
    const auto producer = openWanted(settings);
    const auto before = CMClockGetTime(CMClockGetHostTimeClock());
    ASSERT_EQ(beginFrame(producer)->send(), ProducerStatus::ok);
    const auto after = CMClockGetTime(CMClockGetHostTimeClock());
    ASSERT_TRUE(waitFor([this] { return camera->frameCount() == 1; }));

    const auto timing = camera->latestFrame()->timing;
    EXPECT_LE(CMTimeCompare(before, timing.presentationTimeStamp), 0);
    EXPECT_GE(CMTimeCompare(after, timing.presentationTimeStamp), 0);
    EXPECT_EQ(CMTimeCompare(timing.duration, CMTimeMake(1001, 30000)), 0);
}

// What the camera maps is what the producer draws into: a change after sending shows there, too.
TEST_F(ProducerTests, SendingCopiesNoPixel)
{
    const auto producer = openWanted();
    auto frame = beginFrame(producer);
    auto* const pixel = frame->row(0, 0);
    *pixel = 1;
    ASSERT_EQ(frame->send(), ProducerStatus::ok);
    ASSERT_TRUE(waitFor([this] { return camera->frameCount() == 1; }));
    const auto surface = camera->latestFrame()->surface;
    auto* const seen = static_cast<const std::uint8_t*>(IOSurfaceGetBaseAddress(surface.get()));
    EXPECT_EQ(*seen, 1);
    EXPECT_NE(seen, pixel) << "two mappings";
    *pixel = 2;
    EXPECT_EQ(*seen, 2);
}

struct PlaneSize {
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t bytesPerElement;
};

std::vector<PlaneSize> planesOf(const ProducerFrame& frame)
{
    std::vector<PlaneSize> planes;
    for (std::size_t i = 0; i < frame.planeCount(); ++i)
        planes.push_back({frame.plane(i).width, frame.plane(i).height, frame.plane(i).bytes_per_element});
    return planes;
}

TEST_F(ProducerTests, EachFormatHasItsPlanesAlsoAtOddSizes)
{
    const std::vector<std::pair<std::uint32_t, std::vector<PlaneSize>>> expected = {
        {PAVO_UYVY, {{34, 17, 2}}},
        {PAVO_YUY2, {{34, 17, 2}}},
        {PAVO_NV12, {{33, 17, 1}, {17, 9, 2}}},
        {PAVO_I420, {{33, 17, 1}, {17, 9, 1}, {17, 9, 1}}},
        {PAVO_BGRA, {{33, 17, 4}}}};
    for (const auto& [format, planes] : expected) {
        const auto producer = openWanted(config(format, 33, 17));
        auto frame = beginFrame(producer);
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->format(), static_cast<pavo_pixel_format>(format));
        const auto actual = planesOf(*frame);
        ASSERT_EQ(actual.size(), planes.size()) << "format " << format;
        for (std::size_t i = 0; i < planes.size(); ++i) {
            EXPECT_EQ(actual[i].width, planes[i].width) << "format " << format << " plane " << i;
            EXPECT_EQ(actual[i].height, planes[i].height) << "format " << format << " plane " << i;
            EXPECT_EQ(actual[i].bytesPerElement, planes[i].bytesPerElement) << "format " << format;
            EXPECT_GE(frame->plane(i).stride, std::size_t{actual[i].width} * actual[i].bytesPerElement);
            // All of it may be written to.
            for (std::size_t y = 0; y < actual[i].height; ++y)
                std::memset(frame->row(i, y), 7, std::size_t{actual[i].width} * actual[i].bytesPerElement);
        }
        EXPECT_EQ(frame->send(), ProducerStatus::ok);
        endCamera();
    }
}

TEST_F(ProducerTests, NothingIsDrawnWhileNobodyWatches)
{
    startCamera(false);
    const auto producer = open(config());
    ASSERT_TRUE(waitForEvent(producer, PAVO_EVENT_UNSUBSCRIBED));
    ProducerStatus status{};
    EXPECT_FALSE(producer.beginFrame(&status));
    EXPECT_EQ(status, ProducerStatus::notWanted);
    EXPECT_FALSE(producer.beginFrame());
    EXPECT_EQ(producer.statistics().skipped_unwatched, 2u);
    EXPECT_EQ(producer.statistics().sent, 0u);
}

TEST_F(ProducerTests, ASurfaceThatIsStillReadIsNeverGivenOutAgain)
{
    auto settings = config();
    settings.surface_count = PAVO_MIN_SURFACES;
    const auto producer = openWanted(settings);
    camera->setKeepsAll(true);
    std::set<const std::uint8_t*> given;
    ProducerStatus status{};
    for (std::uint64_t sent = 0;;) {
        auto frame = producer.beginFrame(&status);
        if (!frame) break;
        EXPECT_TRUE(given.insert(frame->row(0, 0)).second) << "given out while the camera reads it";
        ASSERT_EQ(frame->send(), ProducerStatus::ok);
        ++sent;
        ASSERT_TRUE(waitFor([&] { return camera->frameCount() == sent; }));
    }
    EXPECT_EQ(given.size(), std::size_t{PAVO_MIN_SURFACES});
    EXPECT_EQ(status, ProducerStatus::ringFull);
    EXPECT_EQ(producer.statistics().skipped_ring_full, 1u);

    camera->setKeepsAll(false);
    const auto again = beginFrame(producer);
    ASSERT_TRUE(again);
    EXPECT_TRUE(given.contains(again->row(0, 0))) << "made anew, though there was one";
}

TEST_F(ProducerTests, TheLatestFramesAreKeptBackAlthoughTheCameraHasLetGoOfThem)
{
    auto settings = config();
    settings.surface_count = PAVO_MIN_SURFACES;
    const auto producer = openWanted(settings);
    std::vector<const std::uint8_t*> order;
    for (std::uint64_t i = 0; i < 12; ++i) {
        auto frame = beginFrame(producer);
        ASSERT_TRUE(frame);
        order.push_back(frame->row(0, 0));
        ASSERT_EQ(frame->send(), ProducerStatus::ok);
        ASSERT_TRUE(waitFor([&] { return camera->frameCount() == i + 1; }));
    }
    for (std::size_t i = 0; i < order.size(); ++i)
        for (std::size_t back = 1; back <= 3 && back <= i; ++back)
            EXPECT_NE(order[i], order[i - back]) << "frame " << i << " drawn over frame " << i - back;
}

TEST_F(ProducerTests, ADiscardedFrameIsFreeAgainAndNotSent)
{
    const auto producer = openWanted();
    for (int i = 0; i < 100; ++i) {
        auto frame = producer.beginFrame();
        ASSERT_TRUE(frame) << "after " << i;
        frame->discard();
    }
    {
        const auto atTheEndOfItsLife = producer.beginFrame();
    }
    EXPECT_EQ(producer.statistics().discarded, 101u);
    ASSERT_EQ(beginFrame(producer)->send(), ProducerStatus::ok);
    ASSERT_TRUE(waitFor([this] { return camera->frameCount() == 1; }));
    EXPECT_EQ(producer.statistics().sent, 1u);
}

TEST_F(ProducerTests, TheRateIsToldOnConnectingAndWhenItChanges)
{
    auto settings = config();
    settings.rate_numerator = 24;
    const auto producer = openWanted(settings);
    ASSERT_TRUE(waitFor([this] { return camera->rates().size() == 1; }));
    EXPECT_EQ(producer.setRate(30000, 1001), ProducerStatus::ok);
    ASSERT_TRUE(waitFor([this] { return camera->rates().size() == 2; }));

    EXPECT_THAT(camera->rates(), ElementsAre(24.0, 30000.0 / 1001));
}

TEST_F(ProducerTests, EventsArePollable)
{
    startCamera(false);
    const auto producer = open(config());
    pollfd events{producer.eventDescriptor(), POLLIN, 0};
    ASSERT_EQ(::poll(&events, 1, 10'000), 1);
    pavo_event event{};
    ASSERT_TRUE(waitForEvent(producer, PAVO_EVENT_UNSUBSCRIBED));
    EXPECT_EQ(producer.nextEvent(event, 0), ProducerStatus::timedOut);
    EXPECT_EQ(::poll(&events, 1, 0), 0);
    camera->reportWatcher(5, true);
    EXPECT_EQ(::poll(&events, 1, 10'000), 1);
}

TEST_F(ProducerTests, EventsThatNobodyFetchesGiveWayToLaterOnesAndThatIsSaid)
{
    const auto producer = openWanted();
    for (int i = 0; i < 300; ++i)
        ASSERT_TRUE(camera->reportWatcher(1000 + i, true));
    ASSERT_TRUE(waitFor([&producer] { return producer.watchers().size() == 300; }));

    pavo_event event{};
    ASSERT_EQ(producer.nextEvent(event, 0), ProducerStatus::ok);
    EXPECT_EQ(event.type, static_cast<std::uint32_t>(PAVO_EVENT_MISSED));
    std::vector<std::int32_t> pids;
    while (producer.nextEvent(event, 0) == ProducerStatus::ok)
        pids.push_back(event.pid);
    EXPECT_EQ(pids.size(), 256u);
    EXPECT_EQ(pids.back(), 1299);
}

TEST_F(ProducerTests, FramesAreDueAtTheirPace)
{
    auto settings = config();
    settings.rate_numerator = 100;
    const auto producer = open(settings);
    const auto first = producer.nextFrameTime();
    const auto second = producer.nextFrameTime();
    EXPECT_EQ(*second - *first, 10'000'000);
    ASSERT_EQ(producer.waitForNextFrame(), ProducerStatus::ok);
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    EXPECT_GE(now.tv_sec * 1'000'000'000 + now.tv_nsec, *second + 10'000'000);
}

TEST_F(ProducerTests, WaitingEndsAtItsDeadline)
{
    const auto producer = open(config());
    ASSERT_TRUE(waitForEvent(producer, PAVO_EVENT_WAITING));
    pavo_event event{};
    EXPECT_EQ(producer.nextEvent(event, 1'000'000), ProducerStatus::timedOut);
    EXPECT_EQ(producer.waitUntilConnected(1'000'000), ProducerStatus::timedOut);
    EXPECT_EQ(producer.waitUntilWanted(0), ProducerStatus::timedOut);
}

TEST_F(ProducerTests, WaitingEndsWhenTheProducerIsClosed)
{
    auto settings = config();
    settings.rate_denominator = 1000;
    settings.rate_numerator = 1;  // a frame every thousand seconds
    const auto producer = open(settings);
    ASSERT_TRUE(waitForEvent(producer, PAVO_EVENT_WAITING));
    ASSERT_EQ(producer.waitForNextFrame(), ProducerStatus::ok);
    std::array<ProducerStatus, 4> answers{};
    std::atomic<int> begun = 0;
    std::array<std::thread, 4> threads = {std::thread([&] {
                                              ++begun;
                                              pavo_event event{};
                                              answers[0] = producer.nextEvent(event);
                                          }),
                                          std::thread([&] {
                                              ++begun;
                                              answers[1] = producer.waitUntilConnected();
                                          }),
                                          std::thread([&] {
                                              ++begun;
                                              answers[2] = producer.waitUntilWanted();
                                          }),
                                          std::thread([&] {
                                              ++begun;
                                              answers[3] = producer.waitForNextFrame();
                                          })};
    waitFor([&begun] { return begun == 4; });
    producer.close();
    for (auto& thread : threads)
        thread.join();
    EXPECT_THAT(answers, testing::Each(ProducerStatus::closed));
}

TEST_F(ProducerTests, WaitingEndsWhenASignalHandlerHasRun)
{
    static std::atomic<int> handled;
    handled = 0;
    struct sigaction action{};
    struct sigaction before{};
    action.sa_handler = [](int) { ++handled; };
    ::sigaction(SIGUSR1, &action, &before);
    const auto producer = open(config());
    ASSERT_TRUE(waitForEvent(producer, PAVO_EVENT_WAITING));
    std::atomic<bool> isOver = false;
    ProducerStatus answer{};
    std::thread waiting([&] {
        answer = producer.waitUntilConnected();
        isOver = true;
    });
    // The first signals may come before the thread waits.
    EXPECT_TRUE(waitFor([&] {
        if (!isOver) ::pthread_kill(waiting.native_handle(), SIGUSR1);
        return isOver.load();
    }));
    waiting.join();
    ::sigaction(SIGUSR1, &before, nullptr);

    EXPECT_EQ(answer, ProducerStatus::interrupted);
    EXPECT_GT(handled, 0);
}

TEST_F(ProducerTests, SeveralThreadsMayDrawFetchAndAskAtOnce)
{
    auto settings = config();
    settings.surface_count = 16;
    const auto producer = openWanted(settings);
    std::atomic<std::uint64_t> sent = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            for (int j = 0; j < 200; ++j) {
                auto frame = producer.beginFrame();
                if (!frame) continue;
                std::memset(frame->row(0, 0), j, 64);
                if (frame->send() == ProducerStatus::ok) ++sent;
            }
        });
    threads.emplace_back([&] {
        for (int j = 0; j < 200; ++j) {
            camera->reportWatcher(j, true);
            pavo_event event{};
            producer.nextEvent(event, 0);
            producer.watchers();
            producer.setRate(30 + static_cast<std::uint32_t>(j % 2));
        }
    });
    for (auto& thread : threads)
        thread.join();

    EXPECT_EQ(producer.statistics().sent, sent);
    EXPECT_TRUE(waitFor([&] { return camera->frameCount() + producer.statistics().lost == sent; }));
    EXPECT_EQ(producer.statistics().lost, 0u);
}

TEST_F(ProducerTests, WhatWasSentBeforeClosingArrives)
{
    for (int i = 1; i <= 20; ++i) {
        auto producer = openWanted();
        ASSERT_EQ(beginFrame(producer)->send(), ProducerStatus::ok);
        producer.close();
        ASSERT_TRUE(waitFor([this] { return camera->frameCount() == 1; })) << "producer " << i;
        endCamera();
    }
}

TEST_F(ProducerTests, ClosingLeavesNoDescriptorBehind)
{
    {
        const auto first = openWanted();
        ASSERT_EQ(beginFrame(first)->send(), ProducerStatus::ok);
        ASSERT_TRUE(waitFor([this] { return camera->frameCount() == 1; }));
    }
    endCamera();
    // The first producer has started what a process keeps for good.
    std::size_t before = 0;
    ASSERT_TRUE(waitFor([&before] {
        const auto count = openDescriptorCount();
        return std::exchange(before, count) == count;
    }));
    const auto most = before;
    for (int i = 0; i < 10; ++i) {
        const auto producer = openWanted();
        ASSERT_EQ(beginFrame(producer)->send(), ProducerStatus::ok);
        ASSERT_TRUE(waitFor([this] { return camera->frameCount() == 1; }));
        endCamera();
    }
    EXPECT_TRUE(waitFor([most] { return openDescriptorCount() <= most + 1; }))
        << openDescriptorCount() << " instead of " << most;
}

TEST_F(ProducerTests, MistakesInTheConfigurationAreRefused)
{
    const auto statusOf = [](const pavo_producer_config& wrong) {
        ProducerStatus status{};
        EXPECT_FALSE(Producer::open(wrong, &status));
        return status;
    };
    using Change = void (*)(pavo_producer_config&);
    const std::vector<Change> changes = {
        [](auto& c) { c.struct_size = 0; },      [](auto& c) { c.format = 0; },
        [](auto& c) { c.format = 6; },           [](auto& c) { c.width = 0; },
        [](auto& c) { c.width = 16385; },        [](auto& c) { c.height = 0; },
        [](auto& c) { c.height = 16385; },       [](auto& c) { c.rate_numerator = 0; },
        [](auto& c) { c.rate_denominator = 0; }, [](auto& c) { c.rate_numerator = 1001; },
        [](auto& c) { c.surface_count = 4; },    [](auto& c) { c.surface_count = 65; },
        [](auto& c) { c.service = ""; }};
    for (std::size_t i = 0; i < changes.size(); ++i) {
        auto wrong = config();
        changes[i](wrong);
        EXPECT_EQ(statusOf(wrong), ProducerStatus::badArgument) << "change " << i;
    }
    pavo_producer* producer = nullptr;
    EXPECT_EQ(pavo_producer_open(nullptr, &producer), PAVO_ERROR_ARGUMENT);
    const auto right = config();
    EXPECT_EQ(pavo_producer_open(&right, nullptr), PAVO_ERROR_ARGUMENT);
}

TEST_F(ProducerTests, AFrameThatIsSentTwiceIsAnError)
{
    const auto producer = openWanted();
    pavo_frame frame{};
    ASSERT_EQ(pavo_producer_begin_frame(producer.handle(), &frame), PAVO_OK);
    const pavo_timing wrong{0, 0};
    EXPECT_EQ(pavo_producer_send_frame(producer.handle(), &frame, &wrong), PAVO_ERROR_ARGUMENT);
    EXPECT_EQ(pavo_producer_send_frame(producer.handle(), &frame, nullptr), PAVO_OK);
    EXPECT_EQ(pavo_producer_send_frame(producer.handle(), &frame, nullptr), PAVO_ERROR_FRAME);
    EXPECT_EQ(pavo_producer_discard_frame(producer.handle(), &frame), PAVO_ERROR_FRAME);
    pavo_memory* memory = nullptr;
    EXPECT_EQ(pavo_producer_hold_memory(producer.handle(), &frame, &memory), PAVO_ERROR_FRAME);
    EXPECT_EQ(memory, nullptr);
    frame.id = 4711;
    EXPECT_EQ(pavo_producer_send_frame(producer.handle(), &frame, nullptr), PAVO_ERROR_FRAME);
}

// Calls every function with that handle.
void expectEverywhere(pavo_producer* producer, pavo_status expected)
{
    pavo_event event{};
    pavo_frame frame{};
    pavo_statistics statistics{};
    pavo_memory* memory = nullptr;
    std::size_t count = 0;
    std::int64_t dueNs = 0;
    EXPECT_EQ(pavo_producer_next_event(producer, &event, 0), expected);
    EXPECT_EQ(pavo_producer_event_fd(producer), -1);
    EXPECT_EQ(pavo_producer_wait_until_connected(producer, 0), expected);
    EXPECT_EQ(pavo_producer_wait_until_wanted(producer, 0), expected);
    EXPECT_EQ(pavo_producer_get_watchers(producer, nullptr, 0, &count), expected);
    EXPECT_EQ(pavo_producer_begin_frame(producer, &frame), expected);
    EXPECT_EQ(pavo_producer_send_frame(producer, &frame, nullptr), expected);
    EXPECT_EQ(pavo_producer_discard_frame(producer, &frame), expected);
    EXPECT_EQ(pavo_producer_hold_memory(producer, &frame, &memory), expected);
    EXPECT_EQ(pavo_producer_get_next_frame_time(producer, &dueNs), expected);
    EXPECT_EQ(pavo_producer_wait_until(producer, 0), expected);
    EXPECT_EQ(pavo_producer_wait_for_next_frame(producer), expected);
    EXPECT_EQ(pavo_producer_set_rate(producer, 60, 1), expected);
    EXPECT_EQ(pavo_producer_get_statistics(producer, &statistics, sizeof statistics), expected);
    EXPECT_EQ(pavo_producer_close(producer), expected);
}

TEST_F(ProducerTests, AProducerThatIsNotOpenIsAnErrorEverywhere)
{
    const auto producer = open(config());
    producer.close();
    expectEverywhere(producer.handle(), PAVO_ERROR_CLOSED);
    expectEverywhere(nullptr, PAVO_ERROR_CLOSED);
    int notAProducer = 0;
    expectEverywhere(reinterpret_cast<pavo_producer*>(&notAProducer), PAVO_ERROR_CLOSED);
    EXPECT_EQ(pavo_memory_release(reinterpret_cast<pavo_memory*>(&notAProducer)), PAVO_ERROR_ARGUMENT);
}

TEST_F(ProducerTests, NullIsAnErrorWhereItIsNotAllowed)
{
    const auto producer = open(config());
    auto* const handle = producer.handle();
    EXPECT_EQ(pavo_producer_next_event(handle, nullptr, 0), PAVO_ERROR_ARGUMENT);
    EXPECT_EQ(pavo_producer_begin_frame(handle, nullptr), PAVO_ERROR_ARGUMENT);
    EXPECT_EQ(pavo_producer_send_frame(handle, nullptr, nullptr), PAVO_ERROR_ARGUMENT);
    EXPECT_EQ(pavo_producer_discard_frame(handle, nullptr), PAVO_ERROR_ARGUMENT);
    EXPECT_EQ(pavo_producer_get_next_frame_time(handle, nullptr), PAVO_ERROR_ARGUMENT);
    std::size_t count = 0;
    EXPECT_EQ(pavo_producer_get_watchers(handle, nullptr, 1, &count), PAVO_ERROR_ARGUMENT);
    EXPECT_EQ(pavo_producer_get_watchers(handle, nullptr, 0, nullptr), PAVO_ERROR_ARGUMENT);
    pavo_frame frame{};
    pavo_memory* memory = nullptr;
    EXPECT_EQ(pavo_producer_hold_memory(handle, nullptr, &memory), PAVO_ERROR_ARGUMENT);
    EXPECT_EQ(pavo_producer_hold_memory(handle, &frame, nullptr), PAVO_ERROR_ARGUMENT);
    pavo_statistics statistics{};
    EXPECT_EQ(pavo_producer_get_statistics(handle, nullptr, sizeof statistics), PAVO_ERROR_ARGUMENT);
    EXPECT_EQ(pavo_producer_get_statistics(handle, &statistics, 0), PAVO_ERROR_ARGUMENT);
    EXPECT_EQ(pavo_producer_get_statistics(handle, &statistics, sizeof statistics + 1), PAVO_ERROR_ARGUMENT);
    EXPECT_EQ(pavo_producer_set_rate(handle, 0, 1), PAVO_ERROR_ARGUMENT);
    EXPECT_EQ(pavo_producer_set_rate(handle, 60, 0), PAVO_ERROR_ARGUMENT);
}

TEST_F(ProducerTests, AProducerIsNotForAProcessThatWasForkedOff)
{
    const auto producer = openWanted();
    const pid_t child = ::fork();
    if (child == 0) {
        pavo_frame frame{};
        const bool isRight = pavo_producer_begin_frame(producer.handle(), &frame) == PAVO_ERROR_FORKED &&
                             pavo_producer_close(producer.handle()) == PAVO_ERROR_FORKED;
        ::_exit(isRight ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(beginFrame(producer)->send(), ProducerStatus::ok) << "the parent's producer goes on";
}

TEST_F(ProducerTests, HeldMemoryOutlivesTheProducer)
{
    auto producer = openWanted();
    pavo_frame frame{};
    ASSERT_EQ(pavo_producer_begin_frame(producer.handle(), &frame), PAVO_OK);
    pavo_memory* memory = nullptr;
    ASSERT_EQ(pavo_producer_hold_memory(producer.handle(), &frame, &memory), PAVO_OK);
    ASSERT_EQ(pavo_producer_discard_frame(producer.handle(), &frame), PAVO_OK);
    producer.close();
    std::memset(frame.planes[0].data, 1, frame.planes[0].stride * frame.planes[0].height);
    EXPECT_EQ(pavo_memory_release(memory), PAVO_OK);
    EXPECT_EQ(pavo_memory_release(memory), PAVO_ERROR_ARGUMENT);
}

TEST_F(ProducerTests, FramesMayOutliveTheirProducer)
{
    std::optional<ProducerFrame> frame;
    {
        const auto producer = openWanted();
        frame = beginFrame(producer);
    }
    EXPECT_EQ(frame->send(), ProducerStatus::closed);
    EXPECT_EQ(frame->send(), ProducerStatus::badFrame);
}

TEST(Producer, EveryStatusHasWords)
{
    std::set<std::string> texts;
    for (int status = PAVO_ERROR_RESOURCES; status <= PAVO_RING_FULL; ++status)
        texts.insert(pavo_status_text(static_cast<pavo_status>(status)));
    EXPECT_EQ(texts.size(), 10u);
    EXPECT_STREQ(pavo_status_text(static_cast<pavo_status>(77)), "no such status");
}

TEST(Producer, NamesItsVersion)
{
    EXPECT_STREQ(pavo_producer_version(), PAVO_VERSION);
}

}  // namespace
}  // namespace pavo::test
