#pragma once

#include "Platform/CoreImage/CoreImage.h"
#include "Platform/Support/Ref.h"

#include <CoreGraphics/CoreGraphics.h>
#include <CoreMedia/CoreMedia.h>
#include <CoreVideo/CoreVideo.h>

#include <optional>

namespace pavo {

// Makes the placeholder frame: the bundle's picture, scaled to cover the whole frame, centred, as 32BGRA in
// an IOSurface. The last frame made is kept, and given out again while the size stays the same.
//
// Ownership: shares each frame with its callers. A frame that was given out is never drawn into again.
// Threads:   not thread-safe; the stream's frame delivery calls it, one call at a time.
// Errors:    a missing or unreadable picture, a missing filter and an impossible size end the process; a
//            buffer that cannot be made is an empty Ref.
class BasicDefaultFrameGenerator {
public:
    // Loads the picture.
    BasicDefaultFrameGenerator();
    BasicDefaultFrameGenerator(const BasicDefaultFrameGenerator&) = delete;
    BasicDefaultFrameGenerator& operator=(const BasicDefaultFrameGenerator&) = delete;
    virtual ~BasicDefaultFrameGenerator() = default;

    // A frame with the dimensions of a video format.
    [[nodiscard]] virtual cf::Ref<CVPixelBufferRef> generateFrame(CMFormatDescriptionRef formatDescription);
    // Fractions of a pixel are cut off, but are a size of their own.
    [[nodiscard]] virtual cf::Ref<CVPixelBufferRef> generateFrame(CGSize size);

private:
    struct CachedFrame {
        cf::Ref<CVPixelBufferRef> buffer;
        CGSize size;
    };

    ci::Image pictureCovering(CGSize size) const;

    ci::Context context_;
    ci::Image image_;
    std::optional<CachedFrame> cachedFrame_;
};

}  // namespace pavo
