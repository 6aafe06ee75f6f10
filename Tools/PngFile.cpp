#include "Tools/PngFile.h"

#include "Platform/Support/Fatal.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <spng.h>
#include <vector>

namespace pavo::tools {
namespace {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
struct FreeContext {
    void operator()(spng_ctx* context) const { spng_ctx_free(context); }
};
struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;
using Context = std::unique_ptr<spng_ctx, FreeContext>;

Problem cannot(const char* what, const std::string& path, const char* why)
{
    return {std::string(what) + " " + path + ": " + why};
}

// From RGBA to BGRA on black, in place.
void blend(std::vector<std::uint8_t>& pixels)
{
    for (std::size_t i = 0; i + 3 < pixels.size(); i += 4) {
        const unsigned alpha = pixels[i + 3];
        const auto on = [alpha](unsigned value) {
            return static_cast<std::uint8_t>((value * alpha + 127) / 255);
        };
        const std::uint8_t red = on(pixels[i]);
        pixels[i] = on(pixels[i + 2]);
        pixels[i + 1] = on(pixels[i + 1]);
        pixels[i + 2] = red;
        pixels[i + 3] = 255;
    }
}

}  // namespace

Result<Image> readPng(const std::string& path)
{
    const File file(std::fopen(path.c_str(), "rbe"));
    if (!file) return cannot("cannot open", path, std::strerror(errno));
    const Context context(spng_ctx_new(0));
    require(context != nullptr, "no memory for a picture");
    spng_set_image_limits(context.get(), kLargestSide, kLargestSide);
    spng_set_png_file(context.get(), file.get());

    spng_ihdr header{};
    std::size_t size = 0;
    int status = spng_get_ihdr(context.get(), &header);
    if (status == 0) status = spng_decoded_image_size(context.get(), SPNG_FMT_RGBA8, &size);
    if (status != 0) return cannot("no picture in", path, spng_strerror(status));
    std::vector<std::uint8_t> pixels(size);
    status = spng_decode_image(context.get(), pixels.data(), pixels.size(), SPNG_FMT_RGBA8, SPNG_DECODE_TRNS);
    if (status != 0) return cannot("no picture in", path, spng_strerror(status));
    blend(pixels);
    return Image({Packing::bgra, header.width, header.height}, std::move(pixels));
}

std::optional<Problem> writePng(const std::string& path, std::uint32_t width, std::uint32_t height,
                                std::span<const std::uint8_t> rgb)
{
    require(rgb.size() == std::size_t{width} * height * 3, "a picture's bytes do not match its size");
    const Context context(spng_ctx_new(SPNG_CTX_ENCODER));
    require(context != nullptr, "no memory for a picture");
    spng_set_option(context.get(), SPNG_ENCODE_TO_BUFFER, 1);
    // A snapshot should not hold up the next one: little compression, no search for the best filter.
    spng_set_option(context.get(), SPNG_IMG_COMPRESSION_LEVEL, 3);
    spng_set_option(context.get(), SPNG_FILTER_CHOICE, SPNG_FILTER_CHOICE_SUB);
    spng_ihdr header{};
    header.width = width;
    header.height = height;
    header.bit_depth = 8;
    header.color_type = SPNG_COLOR_TYPE_TRUECOLOR;
    spng_set_ihdr(context.get(), &header);
    int status = spng_encode_image(context.get(), rgb.data(), rgb.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
    std::size_t size = 0;
    const std::unique_ptr<void, FreeMemory> encoded(spng_get_png_buffer(context.get(), &size, &status));
    if (!encoded) return cannot("cannot encode", path, spng_strerror(status));

    const std::string partial = path + ".part";
    File file(std::fopen(partial.c_str(), "wbe"));
    if (!file) return cannot("cannot write", path, std::strerror(errno));
    const bool isWritten = std::fwrite(encoded.get(), 1, size, file.get()) == size;
    const bool isClosed = std::fclose(file.release()) == 0;
    if (isWritten && isClosed && std::rename(partial.c_str(), path.c_str()) == 0) return std::nullopt;
    const Problem problem = cannot("cannot write", path, std::strerror(errno));
    std::remove(partial.c_str());
    return problem;
}

}  // namespace pavo::tools
