#include "Tools/PictureFeed.h"

#include "Platform/Support/UniqueFd.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <array>
#include <future>
#include <string>
#include <thread>

namespace pavo::tools {
namespace {

using ReadStatus = PictureFeed::ReadStatus;

constexpr std::string_view kBegin = "--pavo\r\n";

std::vector<std::uint8_t> pictureOf(std::string_view text)
{
    return {text.begin(), text.end()};
}

std::string partOf(const std::string& text)
{
    return "Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(text.size()) + "\r\n\r\n" + text +
           "\r\n--pavo\r\n";
}

// A viewer whose connection counts how often it sleeps and wakes.
struct TestViewer {
    explicit TestViewer(PictureFeed& pictures) : feed(pictures)
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        ours = UniqueFd(ends[0]);
        theirs = UniqueFd(ends[1]);
        viewer = feed.join({[this] { ++sleeps; }, [this] { ++wakes; }, ours.get()});
    }
    ~TestViewer()
    {
        if (viewer) feed.leave(viewer);
    }
    TestViewer(const TestViewer&) = delete;
    TestViewer& operator=(const TestViewer&) = delete;

    std::string read(std::size_t most = 4096)
    {
        std::string text(most, '\0');
        const auto result = feed.read(*viewer, text);
        status = result.status;
        text.resize(result.bytes);
        return text;
    }

    PictureFeed& feed;
    PictureFeed::Viewer* viewer = nullptr;
    UniqueFd ours, theirs;
    int sleeps = 0, wakes = 0;
    ReadStatus status = ReadStatus::some;
};

TEST(PictureFeed, AViewerSleepsUntilThereIsAPicture)
{
    PictureFeed feed;
    TestViewer viewer(feed);
    EXPECT_EQ(viewer.read(), kBegin);
    EXPECT_EQ(viewer.read(), "");
    EXPECT_EQ(viewer.status, ReadStatus::none);
    EXPECT_EQ(viewer.sleeps, 1);
    feed.publish(pictureOf("one"));
    feed.publish(pictureOf("two"));
    EXPECT_EQ(viewer.wakes, 1) << "who is awake is not woken";
    EXPECT_EQ(viewer.read(), partOf("two"));
    EXPECT_EQ(viewer.read(), "");
    EXPECT_EQ(viewer.sleeps, 2) << "nobody is shown a picture twice";
}

TEST(PictureFeed, APictureIsReadToItsEndThoughOthersCome)
{
    PictureFeed feed;
    TestViewer viewer(feed);
    viewer.read();
    feed.publish(pictureOf("first"));
    std::string text = viewer.read(10);
    for (const char* name : {"second", "third", "fourth"})
        feed.publish(pictureOf(name));
    while (text.size() < partOf("first").size())
        text += viewer.read(7);
    EXPECT_EQ(text, partOf("first"));
    EXPECT_EQ(viewer.read(), partOf("fourth")) << "those in between are left out";
    EXPECT_EQ(feed.published(), 4U);
}

TEST(PictureFeed, NobodySeesWhatWasShownBeforeTheLastViewerLeft)
{
    PictureFeed feed;
    {
        TestViewer viewer(feed);
        feed.publish(pictureOf("old"));
    }
    TestViewer viewer(feed);
    EXPECT_EQ(viewer.read(), kBegin);
    EXPECT_EQ(viewer.read(), "");
    EXPECT_EQ(viewer.status, ReadStatus::none);
}

TEST(PictureFeed, TakesSoManyViewersAndNoMore)
{
    PictureFeed feed;
    std::vector<std::unique_ptr<TestViewer>> viewers;
    for (std::size_t i = 0; i < PictureFeed::kMostViewers; ++i)
        viewers.push_back(std::make_unique<TestViewer>(feed));
    EXPECT_EQ(feed.viewers(), PictureFeed::kMostViewers);
    EXPECT_EQ(TestViewer(feed).viewer, nullptr);
    viewers.pop_back();
    EXPECT_NE(TestViewer(feed).viewer, nullptr);
}

TEST(PictureFeed, EndsThoseWhoVanishInTheirSleep)
{
    PictureFeed feed;
    TestViewer stays(feed), goes(feed);
    for (auto* viewer : {&stays, &goes}) {
        viewer->read();
        viewer->read();
    }
    feed.endVanished();
    EXPECT_EQ(goes.wakes, 0);
    goes.theirs.reset();
    feed.endVanished();
    EXPECT_EQ(goes.wakes, 1);
    EXPECT_EQ(goes.read(), "");
    EXPECT_EQ(goes.status, ReadStatus::over);
    EXPECT_EQ(stays.wakes, 0);
}

TEST(PictureFeed, ItsEndWakesEverybody)
{
    PictureFeed feed;
    TestViewer sleeping(feed), reading(feed);
    sleeping.read();
    sleeping.read();
    feed.end();
    EXPECT_EQ(sleeping.wakes, 1);
    EXPECT_EQ(reading.wakes, 0);
    for (auto* viewer : {&sleeping, &reading}) {
        viewer->read();
        EXPECT_EQ(viewer->status, ReadStatus::over);
    }
    EXPECT_EQ(TestViewer(feed).viewer, nullptr);
    EXPECT_FALSE(feed.waitForViewers());
    EXPECT_FALSE(feed.isWatchedFor(std::chrono::hours(1)));
}

TEST(PictureFeed, WaitsForAViewerAndForTheLastOneToLeave)
{
    PictureFeed feed;
    EXPECT_FALSE(feed.isWatchedFor(std::chrono::hours(1))) << "at once";
    std::promise<bool> watched, left;
    std::thread camera([&] {
        watched.set_value(feed.waitForViewers());
        left.set_value(!feed.isWatchedFor(std::chrono::hours(1)));
    });
    {
        TestViewer viewer(feed);
        EXPECT_TRUE(watched.get_future().get());
        EXPECT_TRUE(feed.isWatchedFor(std::chrono::milliseconds(1)));
    }
    EXPECT_TRUE(left.get_future().get());
    camera.join();
}

}  // namespace
}  // namespace pavo::tools
