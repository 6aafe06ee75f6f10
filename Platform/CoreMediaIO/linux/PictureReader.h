#pragma once

#include "Platform/Support/Ref.h"

#include <CoreVideo/CoreVideo.h>

#include <array>
#include <cstdint>

namespace cmio {

// The pixels of a buffer, held readable while this lives.
//
// Errors: a buffer that cannot be read is invalid: one of a format that has no conversion, one that cannot be
//         locked, one whose planes are smaller than its size says.
class PictureReader final {
public:
    struct Plane {
        const std::uint8_t* bytes = nullptr;
        int stride = 0;
    };

    explicit PictureReader(cf::Ref<CVPixelBufferRef> buffer);
    ~PictureReader();
    PictureReader(const PictureReader&) = delete;
    PictureReader& operator=(const PictureReader&) = delete;

    static bool isSupported(OSType format);

    bool isValid() const { return isValid_; }
    OSType format() const { return format_; }
    int width() const { return width_; }
    int height() const { return height_; }
    const Plane& plane(std::size_t index) const { return planes_[index]; }

private:
    bool readPlanes();

    cf::Ref<CVPixelBufferRef> buffer_;
    OSType format_ = 0;
    int width_ = 0;
    int height_ = 0;
    std::array<Plane, 3> planes_;
    bool isLocked_ = false;
    bool isValid_ = false;
};

}  // namespace cmio
