#pragma once

#include "Tools/FrameSource.h"
#include "Tools/TestPattern.h"

namespace pavo::tools {

// The test pattern, without end.
class PatternSource final : public FrameSource {
public:
    PatternSource(std::uint32_t width, std::uint32_t height) : pattern_(width, height) {}

    VideoFormat format() const override { return pattern_.format(); }
    FrameOutcome next(const ImageView& into) override
    {
        pattern_.draw(counter_, into);
        return skip();
    }
    FrameOutcome skip() override
    {
        counter_ = counter_ == kLargestCounter ? 0 : counter_ + 1;
        return {FrameStatus::ready};
    }

private:
    TestPattern pattern_;
    std::uint32_t counter_ = 0;
};

}  // namespace pavo::tools
