#pragma once

#include "Tools/ByteReader.h"
#include "Tools/FrameSource.h"

#include <memory>

namespace pavo::tools {

// Whether anything of the frame was there already, so that an input that ends now ends inside of it.
enum class FrameStart { notSeen, seen };

// What it means that `got` of a frame's `wanted` bytes could be read.
FrameOutcome judgeRead(const ByteReader& reader, std::size_t got, std::size_t wanted, std::uint64_t index,
                       FrameStart start);
// Reads the bytes of one frame.
FrameOutcome readFrame(ByteReader& reader, const ImageView& into, std::uint64_t index, FrameStart start);

// Frames without any header, one after the other, without padding.
class RawVideoSource final : public FrameSource {
public:
    RawVideoSource(std::unique_ptr<ByteReader> reader, const VideoFormat& format)
        : reader_(std::move(reader)),
          format_(format)
    {}

    VideoFormat format() const override { return format_; }
    FrameOutcome next(const ImageView& into) override;
    FrameOutcome skip() override;

private:
    const std::unique_ptr<ByteReader> reader_;
    const VideoFormat format_;
    std::uint64_t index_ = 0;
};

}  // namespace pavo::tools
