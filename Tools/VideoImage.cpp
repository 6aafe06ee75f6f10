#include "Tools/VideoImage.h"

#include "Platform/Support/Fatal.h"

#include <cstring>
#include <utility>

namespace pavo::tools {

std::string_view nameOf(Packing packing)
{
    switch (packing) {
    case Packing::uyvy:
        return "UYVY";
    case Packing::yuy2:
        return "YUY2";
    case Packing::nv12:
        return "NV12";
    case Packing::i420:
        return "I420";
    case Packing::bgra:
        return "BGRA";
    }
    return "unknown";
}

std::vector<PlaneLayout> planesOf(const VideoFormat& format)
{
    const std::size_t width = format.width, height = format.height;
    // An odd side has one more column or row of chroma.
    const std::size_t halfWidth = (width + 1) / 2, halfHeight = (height + 1) / 2;
    switch (format.packing) {
    case Packing::uyvy:
    case Packing::yuy2:
        return {{halfWidth * 4, height}};
    case Packing::nv12:
        return {{width, height}, {halfWidth * 2, halfHeight}};
    case Packing::i420:
        return {{width, height}, {halfWidth, halfHeight}, {halfWidth, halfHeight}};
    case Packing::bgra:
        return {{width * 4, height}};
    }
    return {};
}

std::size_t frameBytes(const VideoFormat& format)
{
    std::size_t bytes = 0;
    for (const auto& plane : planesOf(format))
        bytes += plane.rowBytes * plane.rows;
    return bytes;
}

Image::Image(const VideoFormat& format) : format_(format), bytes_(frameBytes(format)) {}

Image::Image(const VideoFormat& format, std::vector<std::uint8_t> bytes)
    : format_(format),
      bytes_(std::move(bytes))
{
    require(bytes_.size() == frameBytes(format_), "a picture's bytes do not match its format");
}

ImageView Image::view()
{
    ImageView view{format_, {}};
    std::uint8_t* next = bytes_.data();
    std::size_t index = 0;
    for (const auto& plane : planesOf(format_)) {
        view.planes[index++] = {next, plane.rowBytes};
        next += plane.rowBytes * plane.rows;
    }
    return view;
}

void copyImage(const ImageView& from, const ImageView& to)
{
    require(from.format.packing == to.format.packing && from.format.width == to.format.width &&
                from.format.height == to.format.height,
            "pictures of different formats cannot be copied");
    std::size_t index = 0;
    for (const auto& plane : planesOf(from.format)) {
        for (std::size_t y = 0; y < plane.rows; ++y)
            std::memcpy(to.row(index, y), from.row(index, y), plane.rowBytes);
        ++index;
    }
}

}  // namespace pavo::tools
