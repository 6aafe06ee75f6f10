#include "Platform/CoreImage/linux/EncodedPicture.h"

#include "Platform/CoreImage/linux/Log.h"
#include "Platform/Support/UniqueFd.h"

#include <fcntl.h>
#include <os/log_printf.h>
#include <spng.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <span>
#include <utility>

namespace ci {

namespace {

// What a chunk beside the pixels may take, and all of them together.
constexpr std::size_t kChunkSizeLimit = 1U << 20U;
constexpr std::size_t kChunkCacheLimit = 8U << 20U;

constexpr std::size_t kSignatureSize = 8;
constexpr std::size_t kNumberSize = 4;

using Decoder = std::unique_ptr<spng_ctx, void (*)(spng_ctx*)>;

// Null where memory is out.
Decoder decoderOf(std::span<const std::uint8_t> png)
{
    Decoder decoder(spng_ctx_new(0), spng_ctx_free);
    if (!decoder) return decoder;
    spng_set_image_limits(decoder.get(), EncodedPicture::kDimensionLimit, EncodedPicture::kDimensionLimit);
    spng_set_chunk_limits(decoder.get(), kChunkSizeLimit, kChunkCacheLimit);
    spng_set_png_buffer(decoder.get(), png.data(), png.size());
    return decoder;
}

std::uint32_t numberAt(std::span<const std::uint8_t> bytes)
{
    return std::uint32_t{bytes[0]} << 24U | std::uint32_t{bytes[1]} << 16U | std::uint32_t{bytes[2]} << 8U |
           bytes[3];
}

// Whether all chunks are there as they were written: each is its content's size, its name, the content, and a
// check sum of the latter two. The error, or 0.
int checkChunks(std::span<const std::uint8_t> png)
{
    for (auto rest = png.subspan(kSignatureSize);;) {
        if (rest.size() < 3 * kNumberSize) return SPNG_IO_EOF;
        const std::size_t size = numberAt(rest);
        if (size > rest.size() - 3 * kNumberSize) return SPNG_IO_EOF;
        const auto summed = rest.subspan(kNumberSize, kNumberSize + size);
        rest = rest.subspan(2 * kNumberSize + size);
        if (crc32(0, summed.data(), static_cast<uInt>(summed.size())) != numberAt(rest))
            return SPNG_ECHUNK_CRC;
        rest = rest.subspan(kNumberSize);
        if (std::memcmp(summed.data(), "IEND", kNumberSize) == 0) return 0;
    }
}

struct Header {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    int error = 0;
};

// Without the pixels, whose decoding takes more time than all else that a camera does at its start: that none
// of their bytes is missing or wrong is told by check sums.
Header check(std::span<const std::uint8_t> png)
{
    // The decoder would say that it has been used wrongly.
    if (png.empty()) return {.error = SPNG_IO_EOF};
    const Decoder decoder = decoderOf(png);
    if (!decoder) return {.error = SPNG_EMEM};
    spng_ihdr header{};
    if (const int error = spng_get_ihdr(decoder.get(), &header)) return {.error = error};
    if (static_cast<std::uint64_t>(header.width) * header.height > EncodedPicture::kPixelCountLimit)
        return {.error = SPNG_EUSER_WIDTH};
    // Of what stands before the pixels all is understood.
    std::size_t size = 0;
    if (const int error = spng_decoded_image_size(decoder.get(), SPNG_FMT_RGBA8, &size))
        return {.error = error};
    return {header.width, header.height, checkChunks(png)};
}

// Red, green, blue, alpha; or the error.
std::pair<AlignedBytes, int> decode(std::span<const std::uint8_t> png)
{
    const Decoder decoder = decoderOf(png);
    if (!decoder) return {AlignedBytes(), SPNG_EMEM};
    std::size_t size = 0;
    if (const int error = spng_decoded_image_size(decoder.get(), SPNG_FMT_RGBA8, &size))
        return {AlignedBytes(), error};
    AlignedBytes pixels(size);
    if (!pixels.data()) return {AlignedBytes(), SPNG_EMEM};
    const int error = spng_decode_image(decoder.get(), pixels.data(), size, SPNG_FMT_RGBA8, SPNG_DECODE_TRNS);
    return {std::move(pixels), error};
}

void logFailure(const char* doing, const std::string& path, const char* reason)
{
    os_log_printf(platformLog(), OS_LOG_TYPE_ERROR, "Cannot %s picture %s: %s", doing, path.c_str(), reason);
}

// The contents, or why there are none. In one piece of memory from the start: an allocator keeps what a
// growing one leaves behind.
std::pair<std::vector<std::uint8_t>, const char*> contentsOf(const std::string& path)
{
    // A named pipe must not make us wait for its writer.
    const pavo::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status{};
    if (!file.isValid() || ::fstat(file.get(), &status) != 0) return {{}, std::strerror(errno)};
    if (!S_ISREG(status.st_mode)) return {{}, "not a regular file"};
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (size > EncodedPicture::kFileSizeLimit) return {{}, std::strerror(EFBIG)};
    std::vector<std::uint8_t> bytes(size);
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = ::read(file.get(), bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return {{}, std::strerror(errno)};
        if (count == 0) break;
        done += static_cast<std::size_t>(count);
    }
    bytes.resize(done);
    return {std::move(bytes), nullptr};
}

}  // namespace

std::shared_ptr<const EncodedPicture> EncodedPicture::fromFile(const std::string& path)
{
    auto [png, reason] = contentsOf(path);
    if (reason) {
        logFailure("open", path, reason);
        return nullptr;
    }
    const Header header = check(png);
    if (header.error) {
        logFailure("decode", path, spng_strerror(header.error));
        return nullptr;
    }
    return std::make_shared<EncodedPicture>(path, std::move(png), header.width, header.height);
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
    Picture picture(width_, height_, pixels.data());
    if (!picture.isValid()) {
        logFailure("decode", path_, spng_strerror(SPNG_EMEM));
        return std::nullopt;
    }
    return picture;
}

}  // namespace ci
