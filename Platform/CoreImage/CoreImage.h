#pragma once

#include <CoreGraphics/CoreGraphics.h>
#include <CoreVideo/CoreVideo.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

// The part of CoreImage that draws a picture into a pixel buffer: load, scale with a filter, move, render.
// An image is a recipe; only Context::render does work. Images are immutable and cheap to copy.
namespace ci {

inline constexpr std::string_view kCIInputImageKey = "inputImage";
inline constexpr std::string_view kCIInputScaleKey = "inputScale";
inline constexpr std::string_view kCIInputAspectRatioKey = "inputAspectRatio";

class Image final {
public:
    struct Recipe;

    // Reads the picture file; none where it is missing or cannot be decoded.
    static std::optional<Image> imageWithContentsOfFile(const std::string& path);
    explicit Image(std::shared_ptr<const Recipe> recipe) : recipe_(std::move(recipe)) {}

    // Where the image lies, in pixels; the origin is the lower left corner.
    CGRect extent() const;
    Image imageByApplyingTransform(CGAffineTransform transform) const;

    const Recipe& recipe() const { return *recipe_; }

private:
    std::shared_ptr<const Recipe> recipe_;
};

class Filter final {
public:
    struct State;

    // The filter of that name; none where there is no such filter. "CILanczosScaleTransform" scales the
    // height by inputScale and the width by inputScale × inputAspectRatio.
    static std::optional<Filter> filterWithName(std::string_view name);
    explicit Filter(std::shared_ptr<State> state) : state_(std::move(state)) {}

    // Unknown keys are a programming error.
    void setValue(const std::variant<Image, double>& value, std::string_view key);
    // None while an input is missing.
    std::optional<Image> outputImage() const;

private:
    std::shared_ptr<State> state_;
};

// Renders images. One render at a time.
class Context final {
public:
    struct State;

    Context();
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    // Draws the image; its point (0, 0) is the buffer's lower left corner. What lies outside the buffer is
    // not drawn, and what the image does not cover keeps its content. Done when the call returns.
    void render(const Image& image, CVPixelBufferRef buffer);

private:
    std::unique_ptr<State> state_;
};

}  // namespace ci
