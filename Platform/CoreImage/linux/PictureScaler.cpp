#include "Platform/CoreImage/linux/PictureScaler.h"

#include "Platform/CoreImage/linux/Log.h"

#include <os/log_printf.h>
#include <zimg.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>

namespace ci {

namespace {

constexpr double kLanczosLobes = 3;
constexpr int kMaximumPlaneCount = 4;
constexpr std::size_t kBytesPerPixel = 4;

using FilterGraph = std::unique_ptr<zimg_filter_graph, decltype(&zimg_filter_graph_free)>;

zimg_image_format formatOf(const Picture& picture, unsigned width, unsigned height)
{
    zimg_image_format format;
    zimg_image_format_default(&format, ZIMG_API_VERSION);
    format.width = width;
    format.height = height;
    format.pixel_type = ZIMG_PIXEL_BYTE;
    format.color_family = ZIMG_COLOR_RGB;
    format.matrix_coefficients = ZIMG_MATRIX_RGB;
    format.pixel_range = ZIMG_RANGE_FULL;
    format.alpha = picture.isOpaque() ? ZIMG_ALPHA_NONE : ZIMG_ALPHA_PREMULTIPLIED;
    return format;
}

FilterGraph makeGraph(const Picture& picture, const SourceRegion& region, const TargetPixels& target)
{
    auto source = formatOf(picture, picture.width(), picture.height());
    source.active_region = {region.left, region.top, region.width, region.height};
    const auto result = formatOf(picture, target.width, target.height);
    zimg_graph_builder_params parameters;
    zimg_graph_builder_params_default(&parameters, ZIMG_API_VERSION);
    parameters.resample_filter = ZIMG_RESIZE_LANCZOS;
    parameters.filter_param_a = kLanczosLobes;
    return {zimg_filter_graph_build(&source, &result, &parameters), zimg_filter_graph_free};
}

// A few rows of result, plane by plane, on their way into the target.
struct ResultRows {
    AlignedBytes bytes;
    std::size_t stride = 0;
    unsigned rowCount = 0;
    unsigned mask = 0;  // the row of the result with index i is row i & mask here
    bool isOpaque = true;
    TargetPixels target;

    std::uint8_t* row(int plane, unsigned index) const
    {
        return bytes.data() + (static_cast<std::size_t>(plane) * rowCount + (index & mask)) * stride;
    }
};

// Called by the scaler when the row `index` is complete from `left` to `right`.
int packRow(void* user, unsigned index, unsigned left, unsigned right)
{
    const auto& rows = *static_cast<ResultRows*>(user);
    const auto* red = rows.row(Picture::kRed, index);
    const auto* green = rows.row(Picture::kGreen, index);
    const auto* blue = rows.row(Picture::kBlue, index);
    auto* pixel = rows.target.data + index * rows.target.bytesPerRow + left * kBytesPerPixel;
    if (rows.isOpaque) {
        for (unsigned x = left; x < right; ++x, pixel += kBytesPerPixel) {
            pixel[0] = blue[x];
            pixel[1] = green[x];
            pixel[2] = red[x];
            pixel[3] = 255;
        }
        return 0;
    }
    const auto* alpha = rows.row(Picture::kAlpha, index);
    for (unsigned x = left; x < right; ++x, pixel += kBytesPerPixel) {
        // The filter overshoots at edges, each plane by itself; a multiplied colour never exceeds its alpha.
        pixel[0] = std::min(blue[x], alpha[x]);
        pixel[1] = std::min(green[x], alpha[x]);
        pixel[2] = std::min(red[x], alpha[x]);
        pixel[3] = alpha[x];
    }
    return 0;
}

zimg_image_buffer_const inputOf(const Picture& picture)
{
    zimg_image_buffer_const input{};
    input.version = ZIMG_API_VERSION;
    for (int i = 0; i < kMaximumPlaneCount; ++i)
        input.plane[i] = {picture.plane(i), static_cast<ptrdiff_t>(picture.stride()), ZIMG_BUFFER_MAX};
    return input;
}

bool process(const zimg_filter_graph* graph, const Picture& picture, const TargetPixels& target)
{
    std::size_t scratchSize = 0;
    unsigned buffering = 0;
    if (zimg_filter_graph_get_tmp_size(graph, &scratchSize) != ZIMG_ERROR_SUCCESS) return false;
    if (zimg_filter_graph_get_output_buffering(graph, &buffering) != ZIMG_ERROR_SUCCESS) return false;

    ResultRows rows;
    rows.mask = zimg_select_buffer_mask(buffering);
    rows.rowCount = rows.mask == ZIMG_BUFFER_MAX ? target.height : rows.mask + 1;
    rows.stride = AlignedBytes::alignedSize(target.width);
    rows.bytes = AlignedBytes(static_cast<std::size_t>(kMaximumPlaneCount) * rows.rowCount * rows.stride);
    rows.isOpaque = picture.isOpaque();
    rows.target = target;
    const AlignedBytes scratch(std::max(scratchSize, AlignedBytes::kAlignment));
    if (!rows.bytes.data() || !scratch.data()) return false;

    const auto input = inputOf(picture);
    zimg_image_buffer output{};
    output.version = ZIMG_API_VERSION;
    for (int i = 0; i < kMaximumPlaneCount; ++i)
        output.plane[i] = {rows.row(i, 0), static_cast<ptrdiff_t>(rows.stride), rows.mask};
    return zimg_filter_graph_process(graph, &input, &output, scratch.data(), nullptr, nullptr, packRow,
                                     &rows) == ZIMG_ERROR_SUCCESS;
}

std::string failureReason()
{
    std::array<char, 256> text{};
    // What the library does not complain of is memory for the rows.
    if (zimg_get_last_error(text.data(), text.size()) == ZIMG_ERROR_SUCCESS) return "out of memory";
    return text.data();
}

}  // namespace

bool scalePicture(const Picture& picture, const SourceRegion& region, const TargetPixels& target)
{
    // The library keeps the error of a call before this one.
    zimg_clear_last_error();
    const auto graph = makeGraph(picture, region, target);
    if (graph && process(graph.get(), picture, target)) return true;
    os_log_printf(platformLog(), OS_LOG_TYPE_ERROR, "Cannot scale a picture to %u x %u: %s", target.width,
                  target.height, failureReason().c_str());
    return false;
}

}  // namespace ci
