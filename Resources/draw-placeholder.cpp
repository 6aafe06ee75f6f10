// Draws the picture that the camera shows while no producer sends one: a peacock's fan whose heart is a lens,
// the product's name, and what to do. Everything that matters lies in the middle 4:3 part, and stays readable
// in a small preview.
//
// Use: draw-placeholder <file.png>

#include <cairo.h>
#include <spng.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <numbers>
#include <vector>

namespace {

constexpr int kWidth = 2560;
constexpr int kHeight = 1440;
constexpr double kPi = std::numbers::pi;

// Where the feathers meet, and the lens sits.
constexpr double kCentreX = kWidth / 2.0;
constexpr double kCentreY = 770;

struct Colour {
    double red, green, blue;
};

constexpr Colour kNight{0.024, 0.055, 0.086};
constexpr Colour kDusk{0.027, 0.118, 0.153};
constexpr Colour kGlow{0.050, 0.300, 0.330};
constexpr Colour kTeal{0.102, 0.596, 0.573};
constexpr Colour kEmerald{0.165, 0.741, 0.553};
constexpr Colour kGold{0.898, 0.706, 0.353};
constexpr Colour kSky{0.220, 0.714, 0.902};
constexpr Colour kIndigo{0.071, 0.122, 0.310};
constexpr Colour kInk{0.016, 0.035, 0.063};
constexpr Colour kPaper{0.957, 0.973, 0.973};
constexpr Colour kMist{0.690, 0.792, 0.808};

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Canvas = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;
using Pattern = std::unique_ptr<cairo_pattern_t, decltype(&cairo_pattern_destroy)>;

Colour mixed(const Colour& from, const Colour& to, double part)
{
    const auto mix = [part](double a, double b) { return a + (b - a) * part; };
    return {mix(from.red, to.red), mix(from.green, to.green), mix(from.blue, to.blue)};
}

void setColour(cairo_t* canvas, const Colour& colour, double alpha = 1)
{
    cairo_set_source_rgba(canvas, colour.red, colour.green, colour.blue, alpha);
}

// A smooth dark ground shows steps in eight bits, most of all after a video encoder. A fixed pattern of
// thresholds hides them, and compresses well.
double threshold(int x, int y)
{
    static constexpr std::array<std::array<int, 4>, 4> kPattern = {
        {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}}};
    return (kPattern[static_cast<std::size_t>(y % 4)][static_cast<std::size_t>(x % 4)] + 0.5) / 16.0;
}

Colour backgroundAt(double x, double y)
{
    auto colour = mixed(kDusk, kNight, std::pow(y / kHeight, 0.8));
    const double distance = std::hypot((x - kCentreX) / 1150.0, (y - kCentreY + 130) / 760.0);
    colour = mixed(colour, kGlow, 0.62 * std::exp(-2.2 * distance * distance));
    const double corner = std::hypot((x - kCentreX) / (kWidth / 2.0), (y - kHeight / 2.0) / (kHeight / 2.0));
    return mixed(colour, kInk, 0.45 * std::clamp(corner - 0.55, 0.0, 1.0));
}

void drawBackground(cairo_surface_t* surface)
{
    auto* pixels = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    for (int y = 0; y < kHeight; ++y) {
        auto* row = reinterpret_cast<std::uint32_t*>(pixels + static_cast<std::ptrdiff_t>(y) * stride);
        for (int x = 0; x < kWidth; ++x) {
            const auto colour = backgroundAt(x + 0.5, y + 0.5);
            const double lift = threshold(x, y);
            const auto byte = [lift](double value) {
                return static_cast<std::uint32_t>(std::clamp(value * 255.0 + lift, 0.0, 255.0));
            };
            row[x] = 0xFF000000U | byte(colour.red) << 16 | byte(colour.green) << 8 | byte(colour.blue);
        }
    }
    cairo_surface_mark_dirty(surface);
}

void fillEllipse(cairo_t* canvas, double y, double radiusX, double radiusY, const Colour& colour,
                 double alpha = 1)
{
    cairo_save(canvas);
    cairo_translate(canvas, 0, y);
    cairo_scale(canvas, radiusX, radiusY);
    cairo_arc(canvas, 0, 0, 1, 0, 2 * kPi);
    cairo_restore(canvas);
    setColour(canvas, colour, alpha);
    cairo_fill(canvas);
}

// The outline of a feather that points up from the origin: slender at its foot, round at its end.
void feather(cairo_t* canvas, double length, double width)
{
    cairo_move_to(canvas, 0, 0);
    cairo_curve_to(canvas, -width * 0.30, -length * 0.45, -width, -length * 0.62, -width, -length * 0.80);
    cairo_curve_to(canvas, -width, -length * 0.93, -width * 0.45, -length, 0, -length);
    cairo_curve_to(canvas, width * 0.45, -length, width, -length * 0.93, width, -length * 0.80);
    cairo_curve_to(canvas, width, -length * 0.62, width * 0.30, -length * 0.45, 0, 0);
    cairo_close_path(canvas);
}

// One feather with its eye, in the coordinates of its foot.
void drawFeather(cairo_t* canvas, double length, double width, double strength)
{
    const Pattern shade(cairo_pattern_create_linear(0, 0, 0, -length), cairo_pattern_destroy);
    cairo_pattern_add_color_stop_rgba(shade.get(), 0.15, kTeal.red, kTeal.green, kTeal.blue, 0);
    cairo_pattern_add_color_stop_rgba(shade.get(), 0.60, kTeal.red, kTeal.green, kTeal.blue, 0.55 * strength);
    cairo_pattern_add_color_stop_rgba(shade.get(), 1, kEmerald.red, kEmerald.green, kEmerald.blue,
                                      0.95 * strength);
    feather(canvas, length, width);
    cairo_set_source(canvas, shade.get());
    cairo_fill(canvas);

    const double eye = -length * 0.80;
    fillEllipse(canvas, eye, width * 0.74, width * 0.82, kInk, 0.35 * strength);
    fillEllipse(canvas, eye, width * 0.66, width * 0.74, kGold, strength);
    fillEllipse(canvas, eye + width * 0.06, width * 0.50, width * 0.56, kSky, strength);
    fillEllipse(canvas, eye + width * 0.14, width * 0.31, width * 0.35, kIndigo, strength);
}

void drawFan(cairo_t* canvas)
{
    struct Row {
        int count;
        double length, width, spread, strength;
    };
    // The long feathers behind, the short ones between them and in front.
    static constexpr std::array<Row, 2> kRows = {{{9, 560, 76, 78, 1.0}, {8, 400, 50, 68, 0.92}}};
    for (const auto& row : kRows) {
        for (int i = 0; i < row.count; ++i) {
            const double place = row.count == 1 ? 0 : 2.0 * i / (row.count - 1) - 1;
            cairo_save(canvas);
            cairo_translate(canvas, kCentreX, kCentreY);
            cairo_rotate(canvas, place * row.spread * kPi / 180);
            drawFeather(canvas, row.length, row.width, row.strength);
            cairo_restore(canvas);
        }
    }
}

void drawLens(cairo_t* canvas)
{
    cairo_save(canvas);
    cairo_translate(canvas, kCentreX, kCentreY);
    const auto disc = [canvas](double radius, const Colour& inner, const Colour& outer) {
        const Pattern shade(cairo_pattern_create_radial(-radius * 0.3, -radius * 0.35, 0, 0, 0, radius),
                            cairo_pattern_destroy);
        cairo_pattern_add_color_stop_rgb(shade.get(), 0, inner.red, inner.green, inner.blue);
        cairo_pattern_add_color_stop_rgb(shade.get(), 1, outer.red, outer.green, outer.blue);
        cairo_arc(canvas, 0, 0, radius, 0, 2 * kPi);
        cairo_set_source(canvas, shade.get());
        cairo_fill(canvas);
    };
    disc(138, kInk, kInk);
    disc(124, kGold, mixed(kGold, kInk, 0.25));
    disc(108, mixed(kIndigo, kInk, 0.3), kInk);
    disc(84, kSky, kIndigo);
    disc(46, mixed(kIndigo, kInk, 0.2), kInk);
    cairo_arc(canvas, -30, -34, 15, 0, 2 * kPi);
    setColour(canvas, kPaper, 0.92);
    cairo_fill(canvas);
    cairo_restore(canvas);
}

void drawText(cairo_t* canvas, const char* text, const char* family, double size, double baseline,
              const Colour& colour)
{
    cairo_select_font_face(canvas, family, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(canvas, size);
    cairo_text_extents_t extents;
    cairo_text_extents(canvas, text, &extents);
    cairo_move_to(canvas, kCentreX - extents.width / 2 - extents.x_bearing, baseline);
    setColour(canvas, colour);
    cairo_show_text(canvas, text);
}

void setTextQuality(cairo_t* canvas)
{
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    cairo_set_font_options(canvas, options);
    cairo_font_options_destroy(options);
}

std::vector<std::uint8_t> redGreenBlueOf(cairo_surface_t* surface)
{
    cairo_surface_flush(surface);
    const auto* pixels = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    std::vector<std::uint8_t> bytes;
    bytes.reserve(std::size_t{3} * kWidth * kHeight);
    for (int y = 0; y < kHeight; ++y) {
        const auto* row =
            reinterpret_cast<const std::uint32_t*>(pixels + static_cast<std::ptrdiff_t>(y) * stride);
        for (int x = 0; x < kWidth; ++x)
            for (const unsigned shift : {16U, 8U, 0U})
                bytes.push_back(static_cast<std::uint8_t>(row[x] >> shift));
    }
    return bytes;
}

// Without PNG's filters: the pattern in the ground repeats itself as it is, so the file gets smaller, and a
// camera has decoded it in half the time.
bool write(cairo_surface_t* surface, const char* path)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "wbe"), std::fclose);
    const std::unique_ptr<spng_ctx, void (*)(spng_ctx*)> encoder(spng_ctx_new(SPNG_CTX_ENCODER),
                                                                 spng_ctx_free);
    if (!file || !encoder) {
        std::fprintf(stderr, "%s: %s\n", path, std::strerror(errno));
        return false;
    }
    spng_set_png_file(encoder.get(), file.get());
    spng_set_option(encoder.get(), SPNG_FILTER_CHOICE, SPNG_FILTER_CHOICE_NONE);
    spng_set_option(encoder.get(), SPNG_IMG_COMPRESSION_LEVEL, 9);
    spng_set_option(encoder.get(), SPNG_IMG_MEM_LEVEL, 9);
    spng_ihdr header{kWidth, kHeight, 8, SPNG_COLOR_TYPE_TRUECOLOR, 0, 0, SPNG_INTERLACE_NONE};
    spng_set_ihdr(encoder.get(), &header);
    const auto pixels = redGreenBlueOf(surface);
    const int error =
        spng_encode_image(encoder.get(), pixels.data(), pixels.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
    if (error == 0 && std::fflush(file.get()) == 0) return true;
    std::fprintf(stderr, "%s: %s\n", path, error ? spng_strerror(error) : std::strerror(errno));
    return false;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "use: draw-placeholder <file.png>\n");
        return 2;
    }
    const Surface surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight),
                          cairo_surface_destroy);
    drawBackground(surface.get());
    const Canvas canvas(cairo_create(surface.get()), cairo_destroy);
    cairo_set_antialias(canvas.get(), CAIRO_ANTIALIAS_BEST);
    drawFan(canvas.get());
    drawLens(canvas.get());
    setTextQuality(canvas.get());
    drawText(canvas.get(), "Pavo Camera", "Inter Semi Bold", 172, 1120, kPaper);
    drawText(canvas.get(), "Open your producer app to start the picture", "Inter Medium", 76, 1262, kMist);

    return write(surface.get(), argv[1]) ? 0 : 1;
}
