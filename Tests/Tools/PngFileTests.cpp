#include "Tools/PngFile.h"

#include "Tests/Support/Descriptors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spng.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace pavo::tools {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using Bytes = std::vector<std::uint8_t>;

// A PNG file of any kind, made with the library.
std::string encoded(std::uint32_t width, std::uint32_t height, spng_color_type type, std::uint8_t depth,
                    const Bytes& pixels, spng_plte* palette = nullptr)
{
    spng_ctx* context = spng_ctx_new(SPNG_CTX_ENCODER);
    spng_set_option(context, SPNG_ENCODE_TO_BUFFER, 1);
    spng_ihdr header{width, height, depth, static_cast<std::uint8_t>(type), 0, 0, 0};
    EXPECT_EQ(spng_set_ihdr(context, &header), 0);
    if (palette) {
        EXPECT_EQ(spng_set_plte(context, palette), 0);
    }
    EXPECT_EQ(spng_encode_image(context, pixels.data(), pixels.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE),
              0);
    std::size_t size = 0;
    int error = 0;
    auto* buffer = static_cast<char*>(spng_get_png_buffer(context, &size, &error));
    std::string file(buffer, size);
    std::free(buffer);
    spng_ctx_free(context);
    return file;
}

class PngFile : public testing::Test {
protected:
    std::string path(const std::string& name) const { return folder_.path() + "/" + name; }
    std::string write(const std::string& name, const std::string& content) const
    {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }
    // The BGRA bytes of a file with this content.
    Bytes pixelsOf(const std::string& content) const
    {
        auto picture = readPng(write("picture.png", content));
        EXPECT_TRUE(picture) << picture.problem().text;
        return picture ? picture.value().bytes() : Bytes();
    }
    std::string problemWith(const std::string& content) const
    {
        const auto picture = readPng(write("broken.png", content));
        return picture ? std::string("none") : picture.problem().text;
    }

private:
    const test::TemporaryFolder folder_;
};

TEST_F(PngFile, ComesBackAsItWasWritten)
{
    const Bytes rgb = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18};
    ASSERT_FALSE(writePng(path("a.png"), 3, 2, rgb));
    auto picture = readPng(path("a.png"));
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture.value().format().packing, Packing::bgra);
    EXPECT_EQ(picture.value().format().width, 3U);
    EXPECT_EQ(picture.value().format().height, 2U);
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(picture.value().bytes()[i * 4], rgb[i * 3 + 2]);
        EXPECT_EQ(picture.value().bytes()[i * 4 + 1], rgb[i * 3 + 1]);
        EXPECT_EQ(picture.value().bytes()[i * 4 + 2], rgb[i * 3]);
        EXPECT_EQ(picture.value().bytes()[i * 4 + 3], 255);
    }
}

TEST_F(PngFile, IsBlackWhereItShinesThrough)
{
    const auto file = encoded(3, 1, SPNG_COLOR_TYPE_TRUECOLOR_ALPHA, 8,
                              {200, 100, 50, 255, 200, 100, 50, 128, 200, 100, 50, 0});
    EXPECT_THAT(pixelsOf(file), ElementsAre(50, 100, 200, 255, 25, 50, 100, 255, 0, 0, 0, 255));
}

TEST_F(PngFile, MayBeGreyOr16BitsOrHaveAPalette)
{
    EXPECT_THAT(pixelsOf(encoded(2, 1, SPNG_COLOR_TYPE_GRAYSCALE, 8, {0, 77})),
                ElementsAre(0, 0, 0, 255, 77, 77, 77, 255));
    EXPECT_THAT(pixelsOf(encoded(1, 1, SPNG_COLOR_TYPE_GRAYSCALE_ALPHA, 8, {100, 255})),
                ElementsAre(100, 100, 100, 255));
    spng_plte palette{};
    palette.n_entries = 2;
    palette.entries[1] = {10, 20, 30, 0};
    EXPECT_THAT(pixelsOf(encoded(2, 1, SPNG_COLOR_TYPE_INDEXED, 8, {1, 0}, &palette)),
                ElementsAre(30, 20, 10, 255, 0, 0, 0, 255));
    EXPECT_THAT(pixelsOf(encoded(1, 1, SPNG_COLOR_TYPE_TRUECOLOR, 16, {0, 255, 0, 128, 0, 0})).size(), 4U);
}

TEST_F(PngFile, CannotBeReadWhereThereIsNone)
{
    EXPECT_EQ(readPng(path("none.png")).problem().text,
              "cannot open " + path("none.png") + ": No such file or directory");
    EXPECT_THAT(readPng(path("")).problem().text, StartsWith("no picture in "));
    EXPECT_THAT(problemWith(""), StartsWith("no picture in " + path("broken.png") + ": "));
    EXPECT_THAT(problemWith("GIF89a, but what follows is no picture at all"), EndsWith("invalid signature"));
}

TEST_F(PngFile, CannotBeReadWhereItIsBroken)
{
    const auto file = encoded(4, 4, SPNG_COLOR_TYPE_TRUECOLOR, 8, Bytes(48, 9));
    ASSERT_EQ(problemWith(file), "none");
    // What follows the last pixel are check sums and the word that it is the end.
    const std::size_t kBehindThePixels = 28;
    for (std::size_t size = 0; size + kBehindThePixels < file.size(); ++size)
        ASSERT_THAT(problemWith(file.substr(0, size)), StartsWith("no picture in ")) << size;
    auto flipped = file;
    flipped[18] ^= 1;  // in the header, whose check sum is now wrong
    EXPECT_THAT(problemWith(flipped), StartsWith("no picture in "));
}

TEST_F(PngFile, CannotBeReadWhereItIsTooLarge)
{
    const auto wide = encoded(16385, 1, SPNG_COLOR_TYPE_GRAYSCALE, 8, Bytes(16385));
    EXPECT_THAT(problemWith(wide), StartsWith("no picture in "));
    const auto widest = encoded(16384, 1, SPNG_COLOR_TYPE_GRAYSCALE, 8, Bytes(16384));
    EXPECT_EQ(problemWith(widest), "none");
}

TEST_F(PngFile, SaysWhyItCannotBeWritten)
{
    const Bytes rgb(3);
    const auto missing = writePng(path("no/folder/a.png"), 1, 1, rgb);
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->text, "cannot write " + path("no/folder/a.png") + ": No such file or directory");
    ASSERT_TRUE(std::filesystem::create_directory(path("folder.png")));
    const auto folder = writePng(path("folder.png"), 1, 1, rgb);
    ASSERT_TRUE(folder);
    EXPECT_EQ(folder->text, "cannot write " + path("folder.png") + ": Is a directory");
    EXPECT_FALSE(std::filesystem::exists(path("folder.png.part"))) << "nothing is left behind";
    const auto full = writePng("/dev/full/a.png", 1, 1, rgb);
    ASSERT_TRUE(full);
    EXPECT_THAT(full->text, HasSubstr("Not a directory"));
}

TEST_F(PngFile, ReplacesTheFileOfThatName)
{
    write("a.png", "something else");
    ASSERT_FALSE(writePng(path("a.png"), 1, 1, Bytes(3)));
    EXPECT_TRUE(readPng(path("a.png")));
    EXPECT_FALSE(std::filesystem::exists(path("a.png.part")));
}

TEST(PngFileDeathTest, TakesNoPixelsOfAnotherSize)
{
    EXPECT_DEATH(static_cast<void>(writePng("unused.png", 2, 2, Bytes(11))), "do not match its size");
}

}  // namespace
}  // namespace pavo::tools
