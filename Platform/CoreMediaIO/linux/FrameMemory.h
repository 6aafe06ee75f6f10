#pragma once

#include "Platform/Support/UniqueFd.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace cmio {

// Memory of one frame that clients map: a sealed memfd, so nobody can shrink it below a reader.
//
// Threads: made and destroyed on PipeWire's loop; in between used by its data thread alone.
class FrameMemory final {
public:
    // Null, with errno set, when the system has no memory or descriptor left.
    static std::unique_ptr<FrameMemory> create(std::size_t size);
    ~FrameMemory();
    FrameMemory(const FrameMemory&) = delete;
    FrameMemory& operator=(const FrameMemory&) = delete;

    int descriptor() const { return descriptor_.get(); }
    std::uint8_t* pixels() const { return pixels_; }
    std::size_t size() const { return size_; }

    // Names what was drawn last, so that drawing it again can be saved; 0 is never drawn twice.
    std::uint64_t contentNumber = 0;

private:
    FrameMemory(pavo::UniqueFd descriptor, std::uint8_t* pixels, std::size_t size);

    pavo::UniqueFd descriptor_;
    std::uint8_t* pixels_;
    std::size_t size_;
};

}  // namespace cmio
