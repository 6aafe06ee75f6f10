#pragma once

#include <array>
#include <cstddef>

namespace cmio {

// The formats that a camera node offers, best first. One port has one format for all its clients, so nobody
// may be led to one that another kind of client does not take:
//
//              YUY2  UYVY  NV12  a format of RGB
//   browsers   yes   yes   yes   24 bits only, which others do not take
//   OBS        yes   no    yes   those of 32 bits, and rather than any other
//   GStreamer  yes   yes   yes   yes
//   pw-v4l2    yes   yes   yes   yes
//
// Whoever takes several takes YUY2, as browsers do by our order and OBS by its own. A format of RGB would
// make OBS take that one, and then no browser could follow. UYVY and NV12 are for clients that insist.
enum class VideoFormat { yuy2, uyvy, nv12 };

inline constexpr std::array kOfferedFormats = {VideoFormat::yuy2, VideoFormat::uyvy, VideoFormat::nv12};

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
