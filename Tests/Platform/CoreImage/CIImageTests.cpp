#include "Platform/CoreImage/CoreImage.h"

#include "Tests/Platform/CoreImage/PictureFile.h"
#include "Tests/Support/Descriptors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <spng.h>

namespace {

bool failsToRead = false;
// The decoder that cannot be made, counted from the next one; 0: none.
int failingDecoder = 0;

}  // namespace

extern "C" {

ssize_t __real_read(int file, void* bytes, size_t size);

ssize_t __wrap_read(int file, void* bytes, size_t size)
{
    if (!failsToRead) return __real_read(file, bytes, size);
    errno = EIO;
    return -1;
}

spng_ctx* __real_spng_ctx_new(int flags);

spng_ctx* __wrap_spng_ctx_new(int flags)
{
    return failingDecoder > 0 && --failingDecoder == 0 ? nullptr : __real_spng_ctx_new(flags);
}
}

namespace {

using namespace pavo::test;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;

Pixel black(std::uint32_t, std::uint32_t)
{
    return {};
}

// Writes the check sum of the first chunk of that name anew.
void sumAnew(std::string& png, const char* name)
{
    const auto chunk = png.find(name);
    const auto* size = reinterpret_cast<const std::uint8_t*>(png.data()) + chunk - 4;
    const unsigned summed = 4U + (size[2] << 8U | size[3]);
    const auto sum = ::crc32(0, size + 4, summed);
    for (std::size_t i = 0; i < 4; ++i)
        png[chunk + summed + i] = static_cast<char>(sum >> (24 - 8 * i));
}

class CIImageTest : public testing::Test {
protected:
    std::optional<ci::Image> imageFrom(const std::string& bytes) const
    {
        writeFile(path(), bytes);
        return ci::Image::imageWithContentsOfFile(path());
    }
    // What the picture looks like when it is drawn without scaling.
    std::vector<Pixel> drawn(const std::string& bytes) const
    {
        const auto image = imageFrom(bytes);
        if (!image) return {};
        const auto extent = image->extent();
        const auto buffer = makeBuffer(static_cast<std::size_t>(extent.size.width),
                                       static_cast<std::size_t>(extent.size.height), 0x55);
        ci::Context context;
        context.render(*image, buffer.get());
        return pixelsOf(buffer.get());
    }
    // The end of the line about a picture that cannot be decoded.
    std::string undecoded(int error) const
    {
        return "Cannot decode picture " + path() + ": " + spng_strerror(error) + "\n";
    }
    std::string path() const { return folder_.path() + "/picture.png"; }

private:
    TemporaryFolder folder_;
};

TEST_F(CIImageTest, AMissingFileGivesNoImageAndALineInTheLog)
{
    testing::internal::CaptureStderr();
    EXPECT_FALSE(ci::Image::imageWithContentsOfFile(path()));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                EndsWith("Cannot open picture " + path() + ": No such file or directory\n"));
}

TEST_F(CIImageTest, AFileThatCannotBeReadGivesNoImageAndALineInTheLog)
{
    writeFile(path(), pngBytes(4, 4, black));
    testing::internal::CaptureStderr();
    failsToRead = true;
    EXPECT_FALSE(ci::Image::imageWithContentsOfFile(path()));
    failsToRead = false;
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                EndsWith("Cannot open picture " + path() + ": Input/output error\n"));
}

TEST_F(CIImageTest, AFileThatIsNoPictureGivesNoImageAndALineInTheLog)
{
    testing::internal::CaptureStderr();
    EXPECT_FALSE(imageFrom("no picture at all, only text as long as a picture's head"));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(undecoded(SPNG_ESIGNATURE)));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(imageFrom(""));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(undecoded(SPNG_IO_EOF)));
}

TEST_F(CIImageTest, WhatIsNoRegularFileGivesNoImageAndOneLineInTheLogWithoutWaiting)
{
    ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
    for (const std::string& odd : {path(), std::string("/dev/zero"), testing::TempDir()}) {
        testing::internal::CaptureStderr();
        EXPECT_FALSE(ci::Image::imageWithContentsOfFile(odd));
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_THAT(log, EndsWith("Cannot open picture " + odd + ": not a regular file\n"));
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);
    }
}

TEST_F(CIImageTest, AFileOfMoreThan64MebibytesGivesNoImage)
{
    ASSERT_TRUE(imageFrom(pngBytes(4, 4, black)));
    // What follows the picture is not looked at.
    ASSERT_EQ(::truncate(path().c_str(), 64L << 20), 0);
    EXPECT_TRUE(ci::Image::imageWithContentsOfFile(path()));
    ASSERT_EQ(::truncate(path().c_str(), (64L << 20) + 1), 0);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(ci::Image::imageWithContentsOfFile(path()));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                EndsWith("Cannot open picture " + path() + ": File too large\n"));
}

TEST_F(CIImageTest, ATruncatedPictureGivesNoImageWhereverItEnds)
{
    const auto whole = pngBytes(20, 20, [](auto x, auto y) {
        return Pixel{static_cast<std::uint8_t>(x * 13 + y * 7), static_cast<std::uint8_t>(x * y), 0, 255};
    });
    ASSERT_TRUE(imageFrom(whole));
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(imageFrom(whole.substr(0, size))) << size;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(imageFrom(whole.substr(0, whole.size() - 1)));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(undecoded(SPNG_IO_EOF)));
}

TEST_F(CIImageTest, ADamagedPictureGivesNoImage)
{
    const auto whole = pngBytes(20, 20, black);
    ASSERT_TRUE(imageFrom(whole));
    for (std::size_t index = 0; index < whole.size(); ++index) {
        auto bytes = whole;
        bytes[index] ^= 0x40;
        EXPECT_FALSE(imageFrom(bytes)) << index;
    }
    auto bytes = whole;
    bytes[whole.find("IDAT") + 8] ^= 0x40;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(imageFrom(bytes));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(undecoded(SPNG_ECHUNK_CRC)));
}

// Such a file comes from a broken program, not from a broken disk.
TEST_F(CIImageTest, APictureThatWasWrittenWithoutPixelsIsNotDrawnAndGivesALineInTheLog)
{
    auto bytes = pngBytes(20, 20, black);
    bytes[bytes.find("IDAT") + 8] ^= 0x40;
    sumAnew(bytes, "IDAT");
    testing::internal::CaptureStderr();
    const auto pixels = drawn(bytes);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(undecoded(SPNG_EIDAT_STREAM)));
    EXPECT_EQ(pixels, std::vector(400, Pixel{0x55, 0x55, 0x55, 0x55}));
}

TEST_F(CIImageTest, APictureBeyondTheDimensionLimitGivesNoImage)
{
    EXPECT_FALSE(imageFrom(pngBytes(16385, 1, black)));
    EXPECT_FALSE(imageFrom(pngBytes(1, 16385, black)));
    EXPECT_TRUE(imageFrom(pngBytes(16384, 1, black)));
}

TEST_F(CIImageTest, APictureWithTooManyPixelsGivesNoImage)
{
    auto bytes = pngBytes(1, 1, black);
    // A header that promises 16384 × 16384, with its check sum.
    const auto header = bytes.find("IHDR");
    bytes.replace(header + 4, 8, std::string("\0\0\x40\0\0\0\x40\0", 8));
    sumAnew(bytes, "IHDR");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(imageFrom(bytes));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(undecoded(SPNG_EUSER_WIDTH)));
}

TEST_F(CIImageTest, APictureForWhichThereIsNoDecoderGivesALineInTheLog)
{
    const auto bytes = pngBytes(4, 4, black);
    // To look at it, and to draw it.
    for (const int index : {1, 2}) {
        testing::internal::CaptureStderr();
        failingDecoder = index;
        const auto pixels = drawn(bytes);
        EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(undecoded(SPNG_EMEM)));
        EXPECT_THAT(pixels, Each(Pixel{0x55, 0x55, 0x55, 0x55}));
    }
}

TEST_F(CIImageTest, ReadingPicturesLeavesNoDescriptorOpen)
{
    const auto before = openDescriptorCount();
    EXPECT_TRUE(imageFrom(pngBytes(4, 4, black)));
    EXPECT_FALSE(imageFrom(pngBytes(4, 4, black).substr(0, 30)));
    EXPECT_FALSE(imageFrom("broken"));
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST_F(CIImageTest, ReadsInterlacedPictures)
{
    const auto painter = [](std::uint32_t x, std::uint32_t y) {
        return Pixel{static_cast<std::uint8_t>(x * 20), static_cast<std::uint8_t>(y * 20), 99, 255};
    };
    const auto bytes = pngBytes(9, 9, painter, /*isInterlaced=*/true);
    EXPECT_EQ(drawn(bytes), drawn(pngBytes(9, 9, painter)));
    EXPECT_EQ(drawn(bytes).size(), 81U);
}

TEST_F(CIImageTest, ReadsGreyPictures)
{
    EXPECT_THAT(drawn(pngBytes(2, 1, SPNG_COLOR_TYPE_GRAYSCALE, 8, {0x30, 0xC0})),
                ElementsAre(Pixel{0x30, 0x30, 0x30, 255}, Pixel{0xC0, 0xC0, 0xC0, 255}));
}

TEST_F(CIImageTest, ReadsPalettesWithTransparency)
{
    EXPECT_THAT(drawn(pngBytes(2, 1, SPNG_COLOR_TYPE_INDEXED, 8, {0, 1})),
                ElementsAre(Pixel{255, 0, 0, 255}, Pixel{0, 0, 0, 0}));
}

TEST_F(CIImageTest, ReadsColoursOfSixteenBits)
{
    EXPECT_THAT(drawn(pngBytes(1, 1, SPNG_COLOR_TYPE_TRUECOLOR, 16, {0xFF, 0xFF, 0x80, 0x80, 0, 0})),
                ElementsAre(Pixel{255, 0x80, 0, 255}));
}

TEST(CIImageDeathTest, AnImageCannotBeTurned)
{
    const auto image = makeImage(2, 2, black);
    EXPECT_DEATH((void)image.imageByApplyingTransform({0, 1, -1, 0, 0, 0}), "not turned or mirrored");
    EXPECT_DEATH((void)image.imageByApplyingTransform({-1, 0, 0, 1, 0, 0}), "not turned or mirrored");
}

}  // namespace
