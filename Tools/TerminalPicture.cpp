#include "Tools/TerminalPicture.h"

#include <chafa.h>

#include <algorithm>
#include <array>
#include <unistd.h>
#include <utility>

namespace pavo::tools {
namespace {

// Symbols show no more detail than this, in pixels.
constexpr int kSymbolWidth = 8, kSymbolHeight = 16;

struct GraphicsName {
    Graphics graphics;
    std::string_view name;
};
constexpr std::array<GraphicsName, 4> kNames = {{{Graphics::automatic, "auto"},
                                                 {Graphics::symbols, "symbols"},
                                                 {Graphics::sixels, "sixels"},
                                                 {Graphics::kitty, "kitty"}}};

ChafaPixelMode pixelModeOf(Graphics graphics, ChafaTermInfo* terminal)
{
    switch (graphics) {
    case Graphics::symbols:
        return CHAFA_PIXEL_MODE_SYMBOLS;
    case Graphics::sixels:
        return CHAFA_PIXEL_MODE_SIXELS;
    case Graphics::kitty:
        return CHAFA_PIXEL_MODE_KITTY;
    case Graphics::automatic:
        break;
    }
    if (::chafa_term_info_have_seq(terminal, CHAFA_TERM_SEQ_BEGIN_KITTY_IMMEDIATE_IMAGE_V1))
        return CHAFA_PIXEL_MODE_KITTY;
    if (::chafa_term_info_have_seq(terminal, CHAFA_TERM_SEQ_BEGIN_SIXELS)) return CHAFA_PIXEL_MODE_SIXELS;
    return CHAFA_PIXEL_MODE_SYMBOLS;
}

ChafaCanvasMode colorsOf(ChafaTermInfo* terminal)
{
    if (::chafa_term_info_have_seq(terminal, CHAFA_TERM_SEQ_SET_COLOR_FGBG_DIRECT))
        return CHAFA_CANVAS_MODE_TRUECOLOR;
    if (::chafa_term_info_have_seq(terminal, CHAFA_TERM_SEQ_SET_COLOR_FGBG_256))
        return CHAFA_CANVAS_MODE_INDEXED_240;
    if (::chafa_term_info_have_seq(terminal, CHAFA_TERM_SEQ_SET_COLOR_FGBG_16))
        return CHAFA_CANVAS_MODE_INDEXED_16;
    return CHAFA_CANVAS_MODE_FGBG;
}

}  // namespace

Result<Graphics> parseGraphics(std::string_view text)
{
    for (const auto& known : kNames)
        if (text == known.name) return known.graphics;
    return Problem{"graphics are auto, symbols, sixels or kitty, not '" + std::string(text) + "'"};
}

struct TerminalPicture::Impl {
    void setGeometry(int columns, int rows, int cellWidth, int cellHeight);

    ChafaTermInfo* terminal = nullptr;
    ChafaPixelMode pixelMode = CHAFA_PIXEL_MODE_SYMBOLS;
    ChafaCanvasConfig* config = nullptr;
    ChafaCanvas* canvas = nullptr;
};

TerminalPicture::TerminalPicture(Graphics graphics) : impl_(std::make_unique<Impl>())
{
    // A small picture is drawn sooner than several threads are told about it.
    ::chafa_set_n_threads(1);
    impl_->terminal = ::chafa_term_db_detect(::chafa_term_db_get_default(), environ);
    impl_->pixelMode = pixelModeOf(graphics, impl_->terminal);
    const ChafaCanvasMode colors = colorsOf(impl_->terminal);
    // Who asks for a kind of graphics knows more of the terminal than its name tells.
    ChafaTermInfo* usual = ::chafa_term_db_get_fallback_info(::chafa_term_db_get_default());
    ::chafa_term_info_supplement(impl_->terminal, usual);
    ::chafa_term_info_unref(usual);
    impl_->config = ::chafa_canvas_config_new();
    ::chafa_canvas_config_set_pixel_mode(impl_->config, impl_->pixelMode);
    ::chafa_canvas_config_set_canvas_mode(impl_->config, colors);
    ChafaSymbolMap* symbols = ::chafa_symbol_map_new();
    ::chafa_symbol_map_add_by_tags(
        symbols, static_cast<ChafaSymbolTags>(CHAFA_SYMBOL_TAG_BLOCK | CHAFA_SYMBOL_TAG_SPACE));
    ::chafa_canvas_config_set_symbol_map(impl_->config, symbols);
    ::chafa_symbol_map_unref(symbols);
}

TerminalPicture::~TerminalPicture()
{
    if (impl_->canvas) ::chafa_canvas_unref(impl_->canvas);
    ::chafa_canvas_config_unref(impl_->config);
    ::chafa_term_info_unref(impl_->terminal);
}

void TerminalPicture::Impl::setGeometry(int columns, int rows, int cellWidth, int cellHeight)
{
    std::array<int, 4> now{};
    ::chafa_canvas_config_get_geometry(config, &now[0], &now[1]);
    ::chafa_canvas_config_get_cell_geometry(config, &now[2], &now[3]);
    if (canvas && now == std::array{columns, rows, cellWidth, cellHeight}) return;
    ::chafa_canvas_config_set_geometry(config, columns, rows);
    ::chafa_canvas_config_set_cell_geometry(config, cellWidth, cellHeight);
    if (canvas) ::chafa_canvas_unref(canvas);
    canvas = ::chafa_canvas_new(config);
}

std::string TerminalPicture::draw(const CameraFrame& frame, const TerminalSize& screen, int rows)
{
    int columns = screen.columns, height = rows;
    ::chafa_calc_canvas_geometry(static_cast<int>(frame.width), static_cast<int>(frame.height), &columns,
                                 &height, static_cast<float>(screen.cellWidth) / screen.cellHeight, TRUE,
                                 FALSE);
    columns = std::clamp(columns, 1, screen.columns);
    height = std::clamp(height, 1, rows);
    impl_->setGeometry(columns, height, screen.cellWidth, screen.cellHeight);
    const bool isSymbols = impl_->pixelMode == CHAFA_PIXEL_MODE_SYMBOLS;
    const int cellWidth = isSymbols ? kSymbolWidth : screen.cellWidth;
    const int cellHeight = isSymbols ? kSymbolHeight : screen.cellHeight;
    Image picture = bgraOf(frame, static_cast<std::uint32_t>(columns * cellWidth),
                           static_cast<std::uint32_t>(height * cellHeight));
    const ImageView view = picture.view();
    const auto& [data, stride] = view.planes[0];
    ::chafa_canvas_draw_all_pixels(impl_->canvas, CHAFA_PIXEL_BGRA8_UNASSOCIATED, data,
                                   static_cast<int>(picture.format().width),
                                   static_cast<int>(picture.format().height), static_cast<int>(stride));
    GString* printed = ::chafa_canvas_print(impl_->canvas, impl_->terminal);
    const std::string_view text(printed->str, printed->len);
    const int left = (screen.columns - columns) / 2;
    int row = (rows - height) / 2;
    std::string drawing(clear());
    if (isSymbols) {
        for (std::size_t begin = 0; begin < text.size();) {
            const std::size_t end = std::min(text.find('\n', begin), text.size());
            drawing.append(moveTo(row++, left)).append(text.substr(begin, end - begin));
            begin = end + 1;
        }
    } else {
        drawing.append(moveTo(row, left)).append(text);
    }
    g_string_free(printed, TRUE);  // A macro in newer GLibs.
    return drawing;
}

std::string_view TerminalPicture::clear() const
{
    return impl_->pixelMode == CHAFA_PIXEL_MODE_KITTY ? "\x1b_Ga=d\x1b\\" : "";
}

}  // namespace pavo::tools
