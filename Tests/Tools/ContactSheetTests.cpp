#include "Tools/ContactSheet.h"

#include "Tests/Support/Descriptors.h"
#include "Tools/PngFile.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace pavo::tools {
namespace {

constexpr std::uint32_t kTileWidth = 64, kTileHeight = 36;
// Margins, title, headings and labels, as a sheet of these tiles is laid out.
constexpr std::uint32_t kLeft = 16, kTop = 48 + 30, kColumn = kTileWidth + 16, kRow = 30 + kTileHeight + 24;

std::vector<std::uint8_t> tileOf(std::uint8_t red, std::uint8_t green, std::uint8_t blue)
{
    std::vector<std::uint8_t> rgb;
    for (std::size_t i = 0; i < std::size_t{kTileWidth} * kTileHeight; ++i)
        rgb.insert(rgb.end(), {red, green, blue});
    return rgb;
}

using Pixel = std::array<int, 3>;  // red, green, blue

Pixel pixelAt(Image& picture, std::uint32_t x, std::uint32_t y)
{
    const auto* pixel = picture.view().row(0, y) + std::size_t{x} * 4;
    return {pixel[2], pixel[1], pixel[0]};
}

TEST(ContactSheet, HasItsTilesInRowsUnderTheirHeadings)
{
    const test::TemporaryFolder folder;
    const auto path = folder.path() + "/new/folder/sheet.png";
    ContactSheet sheet("Title", kTileWidth, kTileHeight);
    sheet.addRow("First", {{"red", tileOf(255, 0, 0)}, {"green", tileOf(0, 255, 0)}});
    sheet.addRow("Second", {{"blue", tileOf(0, 0, 255)}});
    const auto problem = sheet.write(path);
    ASSERT_FALSE(problem) << problem->text;

    auto picture = readPng(path);
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture.value().format().width, 16 + 2 * kColumn);
    EXPECT_EQ(picture.value().format().height, 48 + 2 * kRow + 16);
    for (const auto& [x, y] : {std::pair{0U, 0U}, {kTileWidth - 1, kTileHeight - 1}}) {
        EXPECT_EQ(pixelAt(picture.value(), kLeft + x, kTop + y), (Pixel{255, 0, 0}));
        EXPECT_EQ(pixelAt(picture.value(), kLeft + kColumn + x, kTop + y), (Pixel{0, 255, 0}));
        EXPECT_EQ(pixelAt(picture.value(), kLeft + x, kTop + kRow + y), (Pixel{0, 0, 255}));
    }
    const auto ground = pixelAt(picture.value(), 0, 0);
    EXPECT_EQ(pixelAt(picture.value(), kLeft - 1, kTop), ground);
    EXPECT_EQ(pixelAt(picture.value(), kLeft + kColumn, kTop + kRow), ground) << "there is no fourth tile";
}

TEST(ContactSheet, WritesItsTexts)
{
    const test::TemporaryFolder folder;
    std::array<std::string, 2> titles = {"", "Title"};
    std::array<std::vector<std::uint8_t>, 2> pictures;
    for (std::size_t i = 0; i < titles.size(); ++i) {
        const auto path = folder.path() + "/sheet" + std::to_string(i) + ".png";
        ContactSheet sheet(titles[i], kTileWidth, kTileHeight);
        sheet.addRow("", {{"", tileOf(9, 9, 9)}});
        ASSERT_FALSE(sheet.write(path));
        pictures[i] = readPng(path).value().bytes();
    }
    EXPECT_NE(pictures[0], pictures[1]);
}

TEST(ContactSheet, LeavesATileOutThatHasAnotherSize)
{
    const test::TemporaryFolder folder;
    const auto path = folder.path() + "/sheet.png";
    ContactSheet sheet("Title", kTileWidth, kTileHeight);
    sheet.addRow("Row", {{"no picture", {}}, {"too small", {1, 2, 3}}});
    ASSERT_FALSE(sheet.write(path));
    auto picture = readPng(path);
    ASSERT_TRUE(picture);
    EXPECT_EQ(pixelAt(picture.value(), kLeft, kTop), pixelAt(picture.value(), 0, 0));
    EXPECT_EQ(pixelAt(picture.value(), kLeft + kColumn, kTop), pixelAt(picture.value(), 0, 0));
}

TEST(ContactSheet, SaysWhyItCannotBeWritten)
{
    const ContactSheet sheet("Title", kTileWidth, kTileHeight);
    const auto problem = sheet.write("/dev/null/sheet.png");
    ASSERT_TRUE(problem);
    EXPECT_EQ(problem->text, "cannot write /dev/null/sheet.png: Not a directory");
}

}  // namespace
}  // namespace pavo::tools
