#pragma once

#include "PixelStorage.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace corevideo {

// What the attributes of a pixel buffer say. Absent ones keep their defaults.
struct BufferAttributes {
    std::optional<OSType> format;
    std::optional<std::int64_t> width;
    std::optional<std::int64_t> height;
    std::size_t bytesPerRowAlignment = 1;
    bool isSurfaceBacked = false;
    cf::Ref<CFDictionaryRef> propagatedAttachments;
    cf::Ref<CFDictionaryRef> nonPropagatedAttachments;
};

// False where an attribute is of the wrong type or out of range. No dictionary is the same as an empty one.
[[nodiscard]] bool readBufferAttributes(CFDictionaryRef attributes, BufferAttributes& result);

// What a buffer of that format and size takes, or why there cannot be one.
CVReturn makeRequest(OSType format, std::size_t width, std::size_t height, const BufferAttributes& attributes,
                     StorageRequest& request);

struct PoolAttributes {
    std::size_t minimumBufferCount = 0;
    double maximumBufferAge = 1.0;  // seconds; 0: none ages
};
[[nodiscard]] bool readPoolAttributes(CFDictionaryRef attributes, PoolAttributes& result);

// Sets the threshold where the attributes have one.
[[nodiscard]] bool readAllocationThreshold(CFDictionaryRef attributes, std::optional<std::size_t>& threshold);

}  // namespace corevideo
