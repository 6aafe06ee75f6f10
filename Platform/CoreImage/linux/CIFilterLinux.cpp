#include "Platform/CoreImage/CoreImage.h"

#include "Platform/CoreImage/linux/ImageRecipe.h"
#include "Platform/Support/Fatal.h"

#include <cmath>
#include <utility>

namespace ci {

// The inputs of the one filter there is. The numbers have defaults, as on the platform.
struct Filter::State {
    std::optional<Image> image;
    double scale = 1;
    double aspectRatio = 1;
};

namespace {

constexpr std::string_view kLanczosScaleTransform = "CILanczosScaleTransform";

bool isUsableScale(double scale)
{
    return std::isfinite(scale) && scale > 0;
}

}  // namespace

std::optional<Filter> Filter::filterWithName(std::string_view name)
{
    if (name != kLanczosScaleTransform) return std::nullopt;
    return Filter(std::make_shared<State>());
}

void Filter::setValue(const std::variant<Image, double>& value, std::string_view key)
{
    const auto* image = std::get_if<Image>(&value);
    pavo::require((key == kCIInputImageKey) == (image != nullptr), "A filter's input has the wrong type");
    if (image)
        state_->image = *image;
    else if (key == kCIInputScaleKey)
        state_->scale = std::get<double>(value);
    else if (key == kCIInputAspectRatioKey)
        state_->aspectRatio = std::get<double>(value);
    else
        pavo::fatalError("The filter has no such input");
}

std::optional<Image> Filter::outputImage() const
{
    const double scaleX = state_->scale * state_->aspectRatio;
    if (!state_->image || !isUsableScale(scaleX) || !isUsableScale(state_->scale)) return std::nullopt;
    return scaledImage(*state_->image, scaleX, state_->scale);
}

}  // namespace ci
