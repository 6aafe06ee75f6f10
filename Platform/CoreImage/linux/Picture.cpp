#include "Platform/CoreImage/linux/Picture.h"

#include "Platform/CoreImage/linux/Log.h"

#include <os/log_printf.h>
#include <spng.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

namespace ci {

namespace {

// What a chunk beside the pixels may take, and all of them together.
constexpr std::size_t kChunkSizeLimit = 1U << 20U;
constexpr std::size_t kChunkCacheLimit = 8U << 20U;
constexpr std::size_t kBytesPerPixel = 4;

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
using Decoder = std::unique_ptr<spng_ctx, void (*)(spng_ctx*)>;

struct DecodedPixels {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> bytes;
};

// The pixels as red, green, blue, alpha, or the error.
std::pair<DecodedPixels, int> decode(spng_ctx* decoder)
{
    DecodedPixels pixels;
    spng_ihdr header{};
    if (const int error = spng_get_ihdr(decoder, &header)) return {{}, error};
    pixels.width = header.width;
    pixels.height = header.height;
    if (static_cast<std::uint64_t>(header.width) * header.height > Picture::kPixelCountLimit)
        return {{}, SPNG_EUSER_WIDTH};
    std::size_t size = 0;
    if (const int error = spng_decoded_image_size(decoder, SPNG_FMT_RGBA8, &size)) return {{}, error};
    pixels.bytes.resize(size);
    const int error = spng_decode_image(decoder, pixels.bytes.data(), size, SPNG_FMT_RGBA8, SPNG_DECODE_TRNS);
    return {std::move(pixels), error};
}

std::uint8_t multiplied(std::uint8_t colour, std::uint8_t alpha)
{
    return static_cast<std::uint8_t>((colour * alpha + 127) / 255);
}

}  // namespace

std::shared_ptr<const Picture> Picture::fromFile(const std::string& path)
{
    const File file(std::fopen(path.c_str(), "rbe"), std::fclose);
    if (!file) {
        os_log_printf(platformLog(), OS_LOG_TYPE_ERROR, "Cannot open picture %s: %s", path.c_str(),
                      std::strerror(errno));
        return nullptr;
    }
    const Decoder decoder(spng_ctx_new(0), spng_ctx_free);
    if (!decoder) return nullptr;
    spng_set_image_limits(decoder.get(), kDimensionLimit, kDimensionLimit);
    spng_set_chunk_limits(decoder.get(), kChunkSizeLimit, kChunkCacheLimit);
    spng_set_png_file(decoder.get(), file.get());
    const auto [pixels, error] = decode(decoder.get());
    if (error) {
        os_log_printf(platformLog(), OS_LOG_TYPE_ERROR, "Cannot decode picture %s: %s", path.c_str(),
                      spng_strerror(error));
        return nullptr;
    }
    const auto picture = std::make_shared<Picture>(pixels.width, pixels.height);
    if (!picture->planes_.data()) return nullptr;
    picture->fill(pixels.bytes.data());
    return picture;
}

Picture::Picture(std::uint32_t width, std::uint32_t height)
    : width_(width),
      height_(height),
      stride_(AlignedBytes::alignedSize(width)),
      planes_(4 * stride_ * height)
{}

const std::uint8_t* Picture::plane(int index) const
{
    return planes_.data() + static_cast<std::size_t>(index) * stride_ * height_;
}

void Picture::fill(const std::uint8_t* pixels)
{
    const std::size_t planeSize = stride_ * height_;
    for (std::size_t y = 0; y < height_; ++y) {
        auto* target = planes_.data() + y * stride_;
        for (std::size_t x = 0; x < width_; ++x, pixels += kBytesPerPixel) {
            const std::uint8_t alpha = pixels[kAlpha];
            target[x] = multiplied(pixels[kRed], alpha);
            target[planeSize + x] = multiplied(pixels[kGreen], alpha);
            target[2 * planeSize + x] = multiplied(pixels[kBlue], alpha);
            target[3 * planeSize + x] = alpha;
            isOpaque_ = isOpaque_ && alpha == 255;
        }
    }
}

}  // namespace ci
