#pragma once

#include "Tools/VideoImage.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace pavo::tools {

// Makes JPEG pictures, one after the other.
//
// Threads: for one thread at a time.
class JpegEncoder final {
public:
    // From 1, the smallest files, to 100, the best pictures.
    explicit JpegEncoder(int quality);
    ~JpegEncoder();
    JpegEncoder(const JpegEncoder&) = delete;
    JpegEncoder& operator=(const JpegEncoder&) = delete;

    // Of a BGRA picture, whose transparency is left out. Empty where it cannot be encoded.
    std::vector<std::uint8_t> encode(Image& picture);

private:
    const int quality_;
    void* handle_;
};

}  // namespace pavo::tools
