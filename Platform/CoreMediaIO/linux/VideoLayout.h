#pragma once

#include <array>
#include <cstddef>

namespace cmio {

// The formats that a camera node offers, best first. One port has one format for all its clients, which the
// first of them decides on, so only what every kind of client takes may be offered:
//
//              YUY2  NV12  UYVY  a format of RGB
//   browsers   yes   yes   yes   24 bits only, which others do not take
//   OBS        yes   yes   no    those of 32 bits, and rather than any other
//   GStreamer  yes   yes   yes   yes
//   pw-v4l2    yes   yes   yes   yes
//
// Whoever takes several takes YUY2, as browsers do by our order and OBS by its own. NV12 is for clients that
// insist; one that insists on UYVY or RGB is refused rather than served to the harm of those after it.
enum class VideoFormat { yuy2, nv12 };

inline constexpr std::array kOfferedFormats = {VideoFormat::yuy2, VideoFormat::nv12};

// How a picture lies in a client's memory: rows without padding, because some clients assume that.
struct VideoLayout {
    VideoFormat format = VideoFormat::yuy2;
    int width = 0;
    int height = 0;

    bool operator==(const VideoLayout&) const = default;

    constexpr int chromaWidth() const { return (width + 1) / 2; }
    constexpr int chromaHeight() const { return (height + 1) / 2; }
    // Of the first plane; NV12's second one, below it, has chromaWidth() * 2.
    constexpr int stride() const { return format == VideoFormat::nv12 ? width : chromaWidth() * 4; }
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
