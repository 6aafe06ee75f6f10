#pragma once

#include "Platform/Support/Ref.h"

#include <CoreMedia/CoreMedia.h>
#include <CoreVideo/CoreVideo.h>

#include <cstdint>

namespace pavo {

// Hands out pixel buffers of one video format, and rebuilds itself when the format changes.
//
// Ownership: owns its CVPixelBufferPool and its format description. Buffers may outlive the pool.
// Threads:   not thread-safe. The frame client calls it on its frame queue only.
// Errors:    a pool that cannot be created ends the process; no free buffer is an empty Ref.
class PixelBufferPool final {
public:
    static constexpr std::int64_t kDefaultMinBufferCount = 60;

    // Allocates `minBufferCount` buffers now, so that taking one allocates nothing.
    explicit PixelBufferPool(cf::Ref<CMFormatDescriptionRef> formatDescription,
                             std::int64_t minBufferCount = kDefaultMinBufferCount);
    PixelBufferPool(const PixelBufferPool&) = delete;
    PixelBufferPool& operator=(const PixelBufferPool&) = delete;

    // A buffer of that format, or an empty Ref while callers hold `minBufferCount` of them.
    [[nodiscard]] cf::Ref<CVPixelBufferRef> pixelBuffer(CMFormatDescriptionRef formatDescription);

private:
    void rebuild(cf::Ref<CMFormatDescriptionRef> formatDescription);
    void prime();

    const std::int64_t minBufferCount_;
    cf::Ref<CMFormatDescriptionRef> currentFormatDescription_;
    cf::Ref<CVPixelBufferPoolRef> pixelBufferPool_;
};

}  // namespace pavo
