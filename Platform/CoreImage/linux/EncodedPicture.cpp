#include "Platform/CoreImage/linux/EncodedPicture.h"

#include "Platform/CoreImage/linux/Log.h"
#include "Platform/Support/UniqueFd.h"

#include <fcntl.h>
#include <os/log_printf.h>
#include <spng.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace ci {

namespace {

// What a chunk beside the pixels may take, and all of them together.
constexpr std::size_t kChunkSizeLimit = 1U << 20U;
constexpr std::size_t kChunkCacheLimit = 8U << 20U;

using Decoder = std::unique_ptr<spng_ctx, void (*)(spng_ctx*)>;

struct DecodedPixels {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    AlignedBytes bytes;  // red, green, blue, alpha
};

// The pixels, or the error.
std::pair<DecodedPixels, int> decode(const std::vector<std::uint8_t>& png)
{
    const Decoder decoder(spng_ctx_new(0), spng_ctx_free);
    if (!decoder) return {DecodedPixels(), SPNG_EMEM};
    spng_set_image_limits(decoder.get(), EncodedPicture::kDimensionLimit, EncodedPicture::kDimensionLimit);
    spng_set_chunk_limits(decoder.get(), kChunkSizeLimit, kChunkCacheLimit);
    spng_set_png_buffer(decoder.get(), png.data(), png.size());

    DecodedPixels pixels;
    spng_ihdr header{};
    if (const int error = spng_get_ihdr(decoder.get(), &header)) return {DecodedPixels(), error};
    pixels.width = header.width;
    pixels.height = header.height;
    if (static_cast<std::uint64_t>(header.width) * header.height > EncodedPicture::kPixelCountLimit)
        return {DecodedPixels(), SPNG_EUSER_WIDTH};
    std::size_t size = 0;
    if (const int error = spng_decoded_image_size(decoder.get(), SPNG_FMT_RGBA8, &size))
        return {DecodedPixels(), error};
    pixels.bytes = AlignedBytes(size);
    if (!pixels.bytes.data()) return {DecodedPixels(), SPNG_EMEM};
    const int error =
        spng_decode_image(decoder.get(), pixels.bytes.data(), size, SPNG_FMT_RGBA8, SPNG_DECODE_TRNS);
    return {std::move(pixels), error};
}

void logFailure(const char* doing, const std::string& path, const char* reason)
{
    os_log_printf(platformLog(), OS_LOG_TYPE_ERROR, "Cannot %s picture %s: %s", doing, path.c_str(), reason);
}

// The contents, or the error. In one piece of memory from the start: an allocator keeps what a growing one
// leaves behind.
std::pair<std::vector<std::uint8_t>, int> contentsOf(const std::string& path)
{
    const pavo::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status{};
    if (!file.isValid() || ::fstat(file.get(), &status) != 0) return {{}, errno};
    if (!S_ISREG(status.st_mode)) return {{}, S_ISDIR(status.st_mode) ? EISDIR : EINVAL};
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (size > EncodedPicture::kFileSizeLimit) return {{}, EFBIG};
    std::vector<std::uint8_t> bytes(size);
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = ::read(file.get(), bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return {{}, errno};
        if (count == 0) break;
        done += static_cast<std::size_t>(count);
    }
    bytes.resize(done);
    return {std::move(bytes), 0};
}

}  // namespace

std::shared_ptr<const EncodedPicture> EncodedPicture::fromFile(const std::string& path)
{
    auto [png, readError] = contentsOf(path);
    if (readError) {
        logFailure("open", path, std::strerror(readError));
        return nullptr;
    }
    const auto [pixels, error] = decode(png);
    if (error) {
        logFailure("decode", path, spng_strerror(error));
        return nullptr;
    }
    return std::make_shared<EncodedPicture>(path, std::move(png), pixels.width, pixels.height);
}

EncodedPicture::EncodedPicture(std::string path, std::vector<std::uint8_t> png, std::uint32_t width,
                               std::uint32_t height)
    : path_(std::move(path)),
      png_(std::move(png)),
      width_(width),
      height_(height)
{}

std::optional<Picture> EncodedPicture::decoded() const
{
    const auto [pixels, error] = decode(png_);
    if (error) {
        logFailure("decode", path_, spng_strerror(error));
        return std::nullopt;
    }
    Picture picture(width_, height_, pixels.bytes.data());
    if (!picture.isValid()) {
        logFailure("decode", path_, spng_strerror(SPNG_EMEM));
        return std::nullopt;
    }
    return picture;
}

}  // namespace ci
