#include "Platform/CoreImage/CoreImage.h"

#include "Platform/CoreImage/linux/ImageRecipe.h"
#include "Platform/CoreImage/linux/Log.h"
#include "Platform/CoreImage/linux/PictureScaler.h"

#include <os/log_printf.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace ci {

// Nothing outlives a render here; the platform's own context holds its device.
struct Context::State {};

namespace {

constexpr std::size_t kBytesPerPixel = 4;

// The pixels from `first` up to `end` along one axis whose centres lie on the image, and the part of the
// picture that they show.
struct Span {
    std::size_t first = 0;
    std::size_t end = 0;
    double sourceStart = 0;
    double sourceLength = 0;
};

// `start` is where the picture's own zero lies on the axis.
Span coveredSpan(double start, double scale, double sourceLength, std::size_t pixelCount)
{
    if (!std::isfinite(start) || !std::isfinite(sourceLength * scale)) return {};
    const double limit = static_cast<double>(pixelCount);
    const double first = std::clamp(std::ceil(start - 0.5), 0.0, limit);
    const double end = std::clamp(std::ceil(start + sourceLength * scale - 0.5), first, limit);
    return {static_cast<std::size_t>(first), static_cast<std::size_t>(end), (first - start) / scale,
            (end - first) / scale};
}

void draw(const Image& image, CVPixelBufferRef buffer)
{
    const auto& recipe = image.recipe();
    const auto height = CVPixelBufferGetHeight(buffer);
    const auto columns =
        coveredSpan(recipe.offsetX, recipe.scaleX, recipe.picture->width(), CVPixelBufferGetWidth(buffer));
    // Rows of memory run from the top, the image's own axis from the bottom.
    const auto extent = image.extent();
    const double top = static_cast<double>(height) - (extent.origin.y + extent.size.height);
    const auto rows = coveredSpan(top, recipe.scaleY, recipe.picture->height(), height);
    if (columns.first == columns.end || rows.first == rows.end) return;

    const auto picture = recipe.picture->decoded();
    if (!picture) return;
    const auto bytesPerRow = CVPixelBufferGetBytesPerRow(buffer);
    auto* base = static_cast<std::uint8_t*>(CVPixelBufferGetBaseAddress(buffer));
    const TargetPixels target{base + rows.first * bytesPerRow + columns.first * kBytesPerPixel, bytesPerRow,
                              static_cast<unsigned>(columns.end - columns.first),
                              static_cast<unsigned>(rows.end - rows.first)};
    scalePicture(*picture, {columns.sourceStart, rows.sourceStart, columns.sourceLength, rows.sourceLength},
                 target);
}

}  // namespace

Context::Context() : state_(std::make_unique<State>()) {}

Context::~Context() = default;

void Context::render(const Image& image, CVPixelBufferRef buffer)
{
    if (CVPixelBufferGetPixelFormatType(buffer) != kCVPixelFormatType_32BGRA) {
        os_log_printf(platformLog(), OS_LOG_TYPE_ERROR, "Cannot draw into pixels of format 0x%08x",
                      CVPixelBufferGetPixelFormatType(buffer));
        return;
    }
    const CVReturn status = CVPixelBufferLockBaseAddress(buffer, 0);
    if (status != kCVReturnSuccess) {
        os_log_printf(platformLog(), OS_LOG_TYPE_ERROR, "Cannot lock a pixel buffer to draw: %d", status);
        return;
    }
    draw(image, buffer);
    CVPixelBufferUnlockBaseAddress(buffer, 0);
}

}  // namespace ci
