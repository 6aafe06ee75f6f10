#include "Tests/Platform/CoreImage/PictureFile.h"

#include "Tests/Platform/CoreImage/TestPicture.h"
#include "Tests/Support/Descriptors.h"

#include <spng.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

namespace pavo::test {

namespace {

std::string encoded(const spng_ihdr& header, const std::vector<std::uint8_t>& pixels)
{
    const std::unique_ptr<spng_ctx, void (*)(spng_ctx*)> encoder(spng_ctx_new(SPNG_CTX_ENCODER),
                                                                 spng_ctx_free);
    spng_set_option(encoder.get(), SPNG_ENCODE_TO_BUFFER, 1);
    auto copy = header;
    spng_set_ihdr(encoder.get(), &copy);
    if (header.color_type == SPNG_COLOR_TYPE_INDEXED) {
        spng_plte palette{2, {{255, 0, 0, 0}, {0, 0, 255, 0}}};
        spng_set_plte(encoder.get(), &palette);
        spng_trns transparency{};
        transparency.n_type3_entries = 2;
        transparency.type3_alpha[0] = 255;
        transparency.type3_alpha[1] = 0;
        spng_set_trns(encoder.get(), &transparency);
    }
    if (spng_encode_image(encoder.get(), pixels.data(), pixels.size(), SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE))
        std::abort();
    std::size_t size = 0;
    int error = 0;
    void* bytes = spng_get_png_buffer(encoder.get(), &size, &error);
    if (!bytes) std::abort();
    std::string result(static_cast<const char*>(bytes), size);
    std::free(bytes);
    return result;
}

cf::Ref<CFNumberRef> number(std::int32_t value)
{
    return cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value));
}

}  // namespace

std::string pngBytes(std::uint32_t width, std::uint32_t height, const Painter& painter, bool isInterlaced)
{
    std::vector<std::uint8_t> bytes;
    for (std::uint32_t y = 0; y < height; ++y)
        for (std::uint32_t x = 0; x < width; ++x) {
            const auto pixel = painter(x, y);
            bytes.insert(bytes.end(), {pixel.red, pixel.green, pixel.blue, pixel.alpha});
        }
    spng_ihdr header{width, height, 8, SPNG_COLOR_TYPE_TRUECOLOR_ALPHA, 0, 0, 0};
    header.interlace_method = isInterlaced ? SPNG_INTERLACE_ADAM7 : SPNG_INTERLACE_NONE;
    return encoded(header, bytes);
}

std::string pngBytes(std::uint32_t width, std::uint32_t height, std::uint8_t colourType,
                     std::uint8_t bitDepth, const std::vector<std::uint8_t>& pixels)
{
    return encoded({width, height, bitDepth, colourType, 0, 0, 0}, pixels);
}

void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

ci::Image makeImage(std::uint32_t width, std::uint32_t height, const Painter& painter)
{
    const TemporaryFolder folder;
    const auto path = folder.path() + "/picture.png";
    writeFile(path, pngBytes(width, height, painter));
    return ci::Image::imageWithContentsOfFile(path).value();
}

cf::Ref<CVPixelBufferRef> makeBuffer(std::size_t width, std::size_t height, std::uint8_t fill,
                                     std::int32_t rowAlignment)
{
    const auto alignment = number(rowAlignment);
    const void* key = kCVPixelBufferBytesPerRowAlignmentKey;
    const void* value = alignment.get();
    const auto attributes =
        cf::adopt(CFDictionaryCreate(kCFAllocatorDefault, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks));
    cf::Ref<CVPixelBufferRef> buffer;
    if (CVPixelBufferCreate(kCFAllocatorDefault, width, height, kCVPixelFormatType_32BGRA, attributes.get(),
                            buffer.receive()) != kCVReturnSuccess)
        std::abort();
    CVPixelBufferLockBaseAddress(buffer.get(), 0);
    std::memset(CVPixelBufferGetBaseAddress(buffer.get()), fill,
                CVPixelBufferGetBytesPerRow(buffer.get()) * height);
    CVPixelBufferUnlockBaseAddress(buffer.get(), 0);
    return buffer;
}

std::vector<Pixel> pixelsOf(CVPixelBufferRef buffer)
{
    std::vector<Pixel> pixels;
    CVPixelBufferLockBaseAddress(buffer, kCVPixelBufferLock_ReadOnly);
    const auto* base = static_cast<const std::uint8_t*>(CVPixelBufferGetBaseAddress(buffer));
    for (std::size_t y = 0; y < CVPixelBufferGetHeight(buffer); ++y)
        for (std::size_t x = 0; x < CVPixelBufferGetWidth(buffer); ++x) {
            const auto* bytes = base + y * CVPixelBufferGetBytesPerRow(buffer) + x * 4;
            pixels.push_back({bytes[2], bytes[1], bytes[0], bytes[3]});
        }
    CVPixelBufferUnlockBaseAddress(buffer, kCVPixelBufferLock_ReadOnly);
    return pixels;
}

void makePictureFile(const std::string& path, std::uint32_t width, std::uint32_t height)
{
    writeFile(path, pngBytes(width, height, [](auto, auto) { return Pixel{}; }));
}

}  // namespace pavo::test
