#pragma once

#include "Tools/FrameSource.h"

#include <utility>

namespace pavo::tools {

// One picture, again and again.
class PictureSource final : public FrameSource {
public:
    explicit PictureSource(Image picture) : picture_(std::move(picture)) {}

    VideoFormat format() const override { return picture_.format(); }
    FrameOutcome next(const ImageView& into) override
    {
        copyImage(picture_.view(), into);
        return {FrameStatus::ready};
    }
    FrameOutcome skip() override { return {FrameStatus::ready}; }

private:
    Image picture_;
};

}  // namespace pavo::tools
