#pragma once

#include "Tools/FrameSource.h"
#include "Tools/MatrixConversion.h"

#include <memory>
#include <utility>

namespace pavo::tools {

// Another source's frames, made with another matrix than the camera's.
class ConvertedSource final : public FrameSource {
public:
    // The source's format is not BGRA.
    ConvertedSource(std::unique_ptr<FrameSource> source, Matrix matrix)
        : source_(std::move(source)),
          conversion_(matrix, Matrix::bt601)
    {}

    VideoFormat format() const override { return source_->format(); }
    std::optional<FrameRate> rate() const override { return source_->rate(); }
    FrameOutcome next(const ImageView& into) override
    {
        auto outcome = source_->next(into);
        if (outcome.status == FrameStatus::ready) conversion_.convert(into);
        return outcome;
    }
    FrameOutcome skip() override { return source_->skip(); }

private:
    const std::unique_ptr<FrameSource> source_;
    MatrixConversion conversion_;
};

}  // namespace pavo::tools
