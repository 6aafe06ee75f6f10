#pragma once

#include "Tools/ByteReader.h"
#include "Tools/FrameSource.h"
#include "Tools/Result.h"

#include <memory>
#include <string_view>
#include <vector>

namespace pavo::tools {

inline constexpr std::string_view kY4MMagic = "YUV4MPEG2";

// What the first line of a YUV4MPEG2 stream says.
struct Y4MHeader {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::optional<FrameRate> rate;
    bool is422 = false;  // else 4:2:0
};

Result<Y4MHeader> parseY4MHeader(std::string_view line);

// A YUV4MPEG2 stream, 8 bits, 4:2:0 or 4:2:2. 4:2:0 stays as it is; 4:2:2 is packed as UYVY, which carries
// the same samples.
class Y4MSource final : public FrameSource {
public:
    // Reads the header.
    static Result<std::unique_ptr<FrameSource>> open(std::unique_ptr<ByteReader> reader);

    Y4MSource(std::unique_ptr<ByteReader> reader, const Y4MHeader& header);

    VideoFormat format() const override;
    std::optional<FrameRate> rate() const override { return header_.rate; }
    FrameOutcome next(const ImageView& into) override;
    FrameOutcome skip() override;

private:
    FrameOutcome readFrameLine();
    std::size_t storedBytes() const;

    const std::unique_ptr<ByteReader> reader_;
    const Y4MHeader header_;
    std::vector<std::uint8_t> planar_;  // a 4:2:2 frame as it is stored
    std::uint64_t index_ = 0;
};

}  // namespace pavo::tools
