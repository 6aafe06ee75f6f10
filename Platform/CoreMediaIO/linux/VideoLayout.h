#pragma once

#include <array>
#include <cstddef>

namespace cmio {

// The formats that a camera node offers, best first: the first is one that every kind of client takes,
// because one port has one format for all its clients.
enum class VideoFormat { yuy2, uyvy, nv12, bgrx };

inline constexpr std::array kOfferedFormats = {VideoFormat::yuy2, VideoFormat::uyvy, VideoFormat::nv12,
                                               VideoFormat::bgrx};

// How a picture lies in a client's memory: rows without padding, because some clients assume that.
struct VideoLayout {
    VideoFormat format = VideoFormat::yuy2;
    int width = 0;
    int height = 0;

    bool operator==(const VideoLayout&) const = default;

    constexpr int chromaWidth() const { return (width + 1) / 2; }
    constexpr int chromaHeight() const { return (height + 1) / 2; }
    // Of the first plane; NV12's second one, below it, has chromaWidth() * 2.
    constexpr int stride() const
    {
        switch (format) {
        case VideoFormat::nv12:
            return width;
        case VideoFormat::bgrx:
            return width * 4;
        default:
            return chromaWidth() * 4;
        }
    }
    constexpr std::size_t lumaSize() const
    {
        return static_cast<std::size_t>(stride()) * static_cast<std::size_t>(height);
    }
    constexpr std::size_t size() const
    {
        if (format != VideoFormat::nv12) return lumaSize();
        return lumaSize() +
               static_cast<std::size_t>(chromaWidth()) * 2 * static_cast<std::size_t>(chromaHeight());
    }
};

}  // namespace cmio
