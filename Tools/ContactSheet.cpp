#include "Tools/ContactSheet.h"

#include "Tools/PngFile.h"

#include <algorithm>
#include <cairo.h>
#include <filesystem>
#include <memory>
#include <utility>

namespace pavo::tools {
namespace {

constexpr std::uint32_t kMargin = 16;
constexpr std::uint32_t kTitleHeight = 48;
constexpr std::uint32_t kHeadingHeight = 30;
constexpr std::uint32_t kLabelHeight = 24;

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Pen = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

void write(cairo_t* pen, double x, double baseline, double size, bool isBold, double grey,
           const std::string& text)
{
    cairo_select_font_face(pen, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                           isBold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(pen, size);
    cairo_set_source_rgb(pen, grey, grey, grey);
    cairo_move_to(pen, x, baseline);
    cairo_show_text(pen, text.c_str());
}

// Into the surface's own memory, whose pixels are 32 bits in the machine's order.
void paint(cairo_surface_t* surface, std::uint32_t left, std::uint32_t top, std::uint32_t width,
           std::uint32_t height, const std::vector<std::uint8_t>& rgb)
{
    cairo_surface_flush(surface);
    unsigned char* pixels = cairo_image_surface_get_data(surface);
    const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface));
    for (std::size_t y = 0; y < height; ++y) {
        auto* row = reinterpret_cast<std::uint32_t*>(pixels + (top + y) * stride) + left;
        const std::uint8_t* source = rgb.data() + y * width * 3;
        for (std::size_t x = 0; x < width; ++x, source += 3)
            row[x] = static_cast<std::uint32_t>(source[0]) << 16 |
                     static_cast<std::uint32_t>(source[1]) << 8 | source[2];
    }
    cairo_surface_mark_dirty(surface);
}

std::vector<std::uint8_t> rgbOf(cairo_surface_t* surface, std::uint32_t width, std::uint32_t height)
{
    cairo_surface_flush(surface);
    const unsigned char* pixels = cairo_image_surface_get_data(surface);
    const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface));
    std::vector<std::uint8_t> rgb;
    rgb.reserve(std::size_t{width} * height * 3);
    for (std::size_t y = 0; y < height; ++y) {
        const auto* row = reinterpret_cast<const std::uint32_t*>(pixels + y * stride);
        for (std::size_t x = 0; x < width; ++x)
            for (const int shift : {16, 8, 0})
                rgb.push_back(static_cast<std::uint8_t>(row[x] >> shift));
    }
    return rgb;
}

}  // namespace

ContactSheet::ContactSheet(std::string title, std::uint32_t tileWidth, std::uint32_t tileHeight)
    : title_(std::move(title)),
      tileWidth_(tileWidth),
      tileHeight_(tileHeight)
{}

void ContactSheet::addRow(std::string heading, std::vector<Tile> tiles)
{
    rows_.push_back({std::move(heading), std::move(tiles)});
}

std::optional<Problem> ContactSheet::write(const std::string& path) const
{
    std::size_t columns = 1;
    for (const auto& row : rows_)
        columns = std::max(columns, row.tiles.size());
    const std::uint32_t rowHeight = kHeadingHeight + tileHeight_ + kLabelHeight;
    const auto width = static_cast<std::uint32_t>(kMargin + columns * (tileWidth_ + kMargin));
    const auto height = static_cast<std::uint32_t>(kTitleHeight + rows_.size() * rowHeight + kMargin);

    const Surface surface(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(width), static_cast<int>(height)),
        cairo_surface_destroy);
    const Pen pen(cairo_create(surface.get()), cairo_destroy);
    if (cairo_status(pen.get()) != CAIRO_STATUS_SUCCESS) return Problem{"no memory for the contact sheet"};
    cairo_set_source_rgb(pen.get(), 0.10, 0.12, 0.13);
    cairo_paint(pen.get());
    tools::write(pen.get(), kMargin, kTitleHeight - 16, 22, true, 0.97, title_);

    std::uint32_t top = kTitleHeight;
    for (const auto& row : rows_) {
        tools::write(pen.get(), kMargin, top + kHeadingHeight - 9.0, 16, true, 0.95, row.heading);
        std::uint32_t left = kMargin;
        for (const auto& tile : row.tiles) {
            if (tile.rgb.size() == std::size_t{tileWidth_} * tileHeight_ * 3)
                paint(surface.get(), left, top + kHeadingHeight, tileWidth_, tileHeight_, tile.rgb);
            tools::write(pen.get(), left, top + kHeadingHeight + tileHeight_ + 17.0, 13, false, 0.75,
                         tile.label);
            left += tileWidth_ + kMargin;
        }
        top += rowHeight;
    }
    std::error_code error;
    const auto folder = std::filesystem::path(path).parent_path();
    if (!folder.empty()) std::filesystem::create_directories(folder, error);
    return writePng(path, width, height, rgbOf(surface.get(), width, height));
}

}  // namespace pavo::tools
