// What the demo reads from the programs that it starts.

#include "Tools/ChildProcess.h"
#include "Tools/EventStream.h"
#include "Tools/PictureStream.h"

#include "Tests/Support/Wait.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <utility>

namespace pavo::tools {
namespace {

using namespace std::chrono_literals;

void writeTo(const UniqueFd& end, const std::string& text)
{
    ASSERT_EQ(::write(end.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

TEST(EventStream, KeepsEventsInOrderAndLeavesOutWhatIsNone)
{
    auto pipe = Pipe::create();
    writeTo(pipe.writeEnd,
            "{\"event\":\"one\",\"pid\":7}\nnoise\n[1]\n{broken\n{\"event\":\"two\"}\n{\"no\":1}\n");
    EventStream stream(std::move(pipe.readEnd));
    ASSERT_TRUE(stream.waitFor("two", 0, 20s));
    pipe.writeEnd.reset();
    ASSERT_TRUE(test::waitFor([&stream] { return stream.events().size() == 3; }));
    const auto events = stream.events();
    EXPECT_TRUE(events[0].is("one"));
    EXPECT_EQ(events[0].content["pid"], 7);
    EXPECT_FALSE(events[2].is("one"));
    EXPECT_LE(events[0].arrivalNs, events[1].arrivalNs);
}

TEST(EventStream, WaitsForEventsSinceATime)
{
    auto pipe = Pipe::create();
    EventStream stream(std::move(pipe.readEnd));
    writeTo(pipe.writeEnd, "{\"event\":\"one\"}\n");
    ASSERT_TRUE(stream.waitFor("one", 0, 20s));
    const auto after = stream.events()[0].arrivalNs + 1;
    EXPECT_FALSE(stream.waitFor("one", after, 0ms));
    writeTo(pipe.writeEnd, "{\"event\":\"one\"}\n");
    EXPECT_TRUE(stream.waitFor("one", after, 20s));
    pipe.writeEnd.reset();
}

TEST(EventStream, DoesNotWaitForAProgramThatHasEnded)
{
    auto pipe = Pipe::create();
    EventStream stream(std::move(pipe.readEnd));
    pipe.writeEnd.reset();
    EXPECT_FALSE(stream.waitFor("one", 0, std::chrono::hours(1)));
}

TEST(PictureStream, CountsWholePicturesAndKeepsTheLatest)
{
    auto pipe = Pipe::create();
    PictureStream stream(std::move(pipe.readEnd), 2, 1);
    EXPECT_FALSE(stream.waitForFirst(0ms));
    writeTo(pipe.writeEnd, "abcdefghijklmno");
    ASSERT_TRUE(stream.waitForFirst(20s));
    ASSERT_TRUE(test::waitFor([&stream] { return stream.arrivalsNs().size() == 2; }));
    EXPECT_EQ(stream.latest(), (std::vector<std::uint8_t>{'g', 'h', 'i', 'j', 'k', 'l'}));
    pipe.writeEnd.reset();
}

}  // namespace
}  // namespace pavo::tools
