#include "Platform/CoreImage/mac/CIObjects.h"
#include "Platform/Foundation/mac/NSConversions.h"

namespace ci {

std::optional<Image> Image::imageWithContentsOfFile(const std::string& path)
{
    NSURL* const url = [NSURL fileURLWithPath:ns::toObject(path)];
    CIImage* const image = [[CIImage alloc] initWithContentsOfURL:url];
    return image ? std::optional(makeImage(image)) : std::nullopt;
}

CGRect Image::extent() const
{
    return recipe_->image.extent;
}

Image Image::imageByApplyingTransform(CGAffineTransform transform) const
{
    return makeImage([recipe_->image imageByApplyingTransform:transform]);
}

}  // namespace ci
