#include "Tests/Tools/ToolsTestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <vector>

namespace pavo::tools {
namespace {

TEST(ByteReader, ReadsLinesAndBytesInTurn)
{
    const TestInput input("first\n\x01\x02second\n\nrest");
    const auto reader = input.reader();
    EXPECT_EQ(reader->readLine(100), "first");
    std::array<std::uint8_t, 2> bytes{};
    EXPECT_EQ(reader->read(bytes), 2U);
    EXPECT_EQ(bytes[1], 2);
    EXPECT_EQ(reader->readLine(100), "second");
    EXPECT_EQ(reader->readLine(100), "");
    EXPECT_EQ(reader->readLine(100), std::nullopt) << "the last line has no end";
    EXPECT_EQ(reader->skip(100), 4U);
}

TEST(ByteReader, TakesALineUpToItsLimit)
{
    const TestInput input(std::string(10, 'a') + "\n" + std::string(11, 'b') + "\n");
    const auto reader = input.reader();
    EXPECT_EQ(reader->readLine(10), std::string(10, 'a'));
    EXPECT_EQ(reader->readLine(10), std::nullopt);
}

TEST(ByteReader, LooksAtTheBeginningWithoutTakingIt)
{
    const TestInput input("YUV4MPEG2 W1");
    const auto reader = input.reader();
    EXPECT_TRUE(reader->startsWith("YUV4MPEG2"));
    EXPECT_FALSE(reader->startsWith("PNG"));
    EXPECT_FALSE(reader->startsWith("YUV4MPEG2 W1 and more"));
    std::vector<std::uint8_t> bytes(100);
    EXPECT_EQ(reader->read(bytes), 12U);
}

TEST(ByteReader, ReadsMoreThanItsBufferHolds)
{
    const auto bytes = countingBytes(300'000);
    const TestInput input(bytes);
    const auto reader = input.reader();
    EXPECT_TRUE(reader->startsWith(bytes.substr(0, 3)));
    EXPECT_EQ(reader->skip(100'001), 100'001U);
    std::vector<std::uint8_t> rest(300'000);
    EXPECT_EQ(reader->read(rest), 199'999U);
    EXPECT_EQ(rest[0], static_cast<std::uint8_t>(100'001));
}

TEST(ByteReader, IsStoppedWhileItWaits)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const UniqueFd readEnd(ends[0]), writeEnd(ends[1]);
    const UniqueFd stop(::eventfd(1, EFD_CLOEXEC));
    ByteReader reader(readEnd.get(), stop.get());
    std::array<std::uint8_t, 1> byte{};
    EXPECT_EQ(reader.read(byte), 0U);
    EXPECT_TRUE(reader.wasStopped());
    EXPECT_EQ(reader.problem(), "");
}

TEST(ByteReader, SaysWhyItCannotRead)
{
    const UniqueFd folder(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ByteReader reader(folder.get());
    std::array<std::uint8_t, 1> byte{};
    EXPECT_EQ(reader.read(byte), 0U);
    EXPECT_EQ(reader.problem(), "Is a directory");
    EXPECT_FALSE(reader.wasStopped());
}

}  // namespace
}  // namespace pavo::tools
