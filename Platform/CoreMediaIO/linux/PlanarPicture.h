#pragma once

#include <cstdint>
#include <vector>

namespace cmio {

// A YCbCr picture in three planes that somebody else holds: what every conversion but the direct ones goes
// through. Video range; chroma has half the luma's width, and half its height if `halfHeightChroma`.
struct PlanarView {
    const std::uint8_t* y = nullptr;
    const std::uint8_t* u = nullptr;
    const std::uint8_t* v = nullptr;
    int strideY = 0;
    int strideU = 0;
    int strideV = 0;
    int width = 0;
    int height = 0;
    bool halfHeightChroma = false;

    int chromaWidth() const { return (width + 1) / 2; }
    int chromaHeight() const { return halfHeightChroma ? (height + 1) / 2 : height; }
};

// Memory for such a picture; it keeps its capacity, so that a stream of equal frames allocates once.
class PlanarPicture final {
public:
    void resize(int width, int height, bool halfHeightChroma)
    {
        view_ = {};
        view_.width = width;
        view_.height = height;
        view_.halfHeightChroma = halfHeightChroma;
        view_.strideY = width;
        view_.strideU = view_.strideV = view_.chromaWidth();
        const auto chromaSize =
            static_cast<std::size_t>(view_.strideU) * static_cast<std::size_t>(view_.chromaHeight());
        y_.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
        u_.resize(chromaSize);
        v_.resize(chromaSize);
        view_.y = y_.data();
        view_.u = u_.data();
        view_.v = v_.data();
    }
    const PlanarView& view() const { return view_; }
    std::uint8_t* y() { return y_.data(); }
    std::uint8_t* u() { return u_.data(); }
    std::uint8_t* v() { return v_.data(); }

private:
    PlanarView view_;
    std::vector<std::uint8_t> y_;
    std::vector<std::uint8_t> u_;
    std::vector<std::uint8_t> v_;
};

}  // namespace cmio
