#pragma once

#include "Platform/Support/Ref.h"
#include "Tools/VideoImage.h"

#include <CoreVideo/CoreVideo.h>

#include <optional>

namespace pavo::tools {

// A ring of surfaces to draw into. One that the camera still has in use is never drawn into again.
class SurfacePool final {
public:
    // None where surfaces of that format cannot be made.
    static std::optional<SurfacePool> create(const VideoFormat& format);

    // A free surface as a pixel buffer; empty while all are in use.
    cf::Ref<CVPixelBufferRef> take();

private:
    explicit SurfacePool(cf::Ref<CVPixelBufferPoolRef> pool) : pool_(std::move(pool)) {}

    cf::Ref<CVPixelBufferPoolRef> pool_;
};

// Holds a pixel buffer's memory for writing.
class LockedPixels final {
public:
    LockedPixels(CVPixelBufferRef buffer, const VideoFormat& format);
    ~LockedPixels();
    LockedPixels(const LockedPixels&) = delete;
    LockedPixels& operator=(const LockedPixels&) = delete;

    const ImageView& view() const { return view_; }

private:
    CVPixelBufferRef buffer_;
    ImageView view_;
};

}  // namespace pavo::tools
