#pragma once

#include "Tools/VideoImage.h"

#include <cstdint>
#include <optional>
#include <string>

namespace pavo::tools {

// Frames per second above which nothing is video.
inline constexpr double kFastestRate = 1000;

// Frames per second as a fraction, as video files say it.
struct FrameRate {
    std::uint32_t numerator;
    std::uint32_t denominator;

    double framesPerSecond() const { return static_cast<double>(numerator) / denominator; }
    // When frame `index` is due after the first one. Without an error that adds up over the frames.
    std::int64_t dueNs(std::int64_t index) const
    {
        return static_cast<std::int64_t>(static_cast<__int128>(index) * 1'000'000'000 * denominator /
                                         numerator);
    }
};

enum class FrameStatus {
    ready,
    ended,    // the input is over, at the end of a frame
    stopped,  // the program is to end
    failed
};

struct FrameOutcome {
    FrameStatus status;
    std::string problem = {};  // a sentence, where it failed
};

// Where a producer's frames come from. All frames have one format.
class FrameSource {
public:
    virtual ~FrameSource() = default;

    virtual VideoFormat format() const = 0;
    // The pace that the input itself asks for; none where it knows none.
    virtual std::optional<FrameRate> rate() const { return std::nullopt; }
    // Writes the next frame. `into` has the source's format.
    virtual FrameOutcome next(const ImageView& into) = 0;
    // Leaves the next frame out.
    virtual FrameOutcome skip() = 0;
};

}  // namespace pavo::tools
