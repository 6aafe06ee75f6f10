#include "Platform/CoreImage/mac/CIObjects.h"
#include "Platform/Foundation/mac/NSConversions.h"

namespace ci {

namespace {

// The system's constant where there is one: its text is the system's affair.
NSString* keyObject(std::string_view key)
{
    if (key == kCIInputImageKey) return ::kCIInputImageKey;
    if (key == kCIInputScaleKey) return ::kCIInputScaleKey;
    if (key == kCIInputAspectRatioKey) return ::kCIInputAspectRatioKey;
    return ns::toObject(key);
}

id valueObject(const std::variant<Image, double>& value)
{
    if (const auto* image = std::get_if<Image>(&value)) return image->recipe().image;
    return [NSNumber numberWithDouble:std::get<double>(value)];
}

}  // namespace

std::optional<Filter> Filter::filterWithName(std::string_view name)
{
    CIFilter* const filter = [CIFilter filterWithName:ns::toObject(name)];
    return filter ? std::optional(Filter(std::make_shared<State>(filter))) : std::nullopt;
}

void Filter::setValue(const std::variant<Image, double>& value, std::string_view key)
{
    [state_->filter setValue:valueObject(value) forKey:keyObject(key)];
}

std::optional<Image> Filter::outputImage() const
{
    CIImage* const image = state_->filter.outputImage;
    return image ? std::optional(makeImage(image)) : std::nullopt;
}

}  // namespace ci
