#pragma once

#include "Platform/CoreMediaIO/linux/PictureReader.h"
#include "Platform/CoreMediaIO/linux/PlanarPicture.h"
#include "Platform/CoreMediaIO/linux/VideoLayout.h"

#include <cstdint>

namespace cmio {

// Draws pictures of any supported format and size into a client's layout. A picture keeps its shape: what it
// leaves of the frame is black. YCbCr is that of BT.601, in video range.
//
// Threads: one at a time. It keeps memory for the steps between, so that a stream of equal frames allocates
//          only at its start.
class FrameConverter final {
public:
    // `source` is valid; `pixels` has room for target.size() bytes.
    void convert(const PictureReader& source, const VideoLayout& target, std::uint8_t* pixels);

private:
    // Where a picture lies in a frame of another size; even, so that chroma samples stay whole.
    struct Placement {
        int x;
        int y;
        int width;
        int height;
    };

    static Placement place(int width, int height, const VideoLayout& target);
    // True when one step did all of it.
    static bool convertDirectly(const PictureReader& source, const VideoLayout& target, std::uint8_t* pixels);
    PlanarView loadPlanar(const PictureReader& source);
    PlanarView loadBiPlanar(const PictureReader& source);
    PlanarView fit(const PlanarView& picture, const VideoLayout& target);
    void store(const PlanarView& picture, const VideoLayout& target, std::uint8_t* pixels);
    void storeHalvingChroma(const PlanarView& picture, const VideoLayout& target, std::uint8_t* luma,
                            std::uint8_t* chroma);

    PlanarPicture loaded_;
    PlanarPicture fitted_;
    PlanarPicture halved_;
};

}  // namespace cmio
