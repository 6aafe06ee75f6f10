#include "Platform/CoreImage/CoreImage.h"

#include "Platform/CoreImage/linux/ImageRecipe.h"
#include "Platform/Support/Fatal.h"

namespace ci {

Image scaledImage(const Image& image, double scaleX, double scaleY)
{
    auto recipe = image.recipe();
    recipe.scaleX *= scaleX;
    recipe.scaleY *= scaleY;
    recipe.offsetX *= scaleX;
    recipe.offsetY *= scaleY;
    return Image(std::make_shared<const Image::Recipe>(std::move(recipe)));
}

std::optional<Image> Image::imageWithContentsOfFile(const std::string& path)
{
    auto picture = EncodedPicture::fromFile(path);
    if (!picture) return std::nullopt;
    return Image(std::make_shared<const Recipe>(Recipe{.picture = std::move(picture)}));
}

CGRect Image::extent() const
{
    return CGRectMake(recipe_->offsetX, recipe_->offsetY, recipe_->picture->width() * recipe_->scaleX,
                      recipe_->picture->height() * recipe_->scaleY);
}

Image Image::imageByApplyingTransform(CGAffineTransform transform) const
{
    pavo::require(transform.b == 0 && transform.c == 0 && transform.a > 0 && transform.d > 0,
                  "An image can be moved and scaled, not turned or mirrored");
    auto recipe = scaledImage(*this, transform.a, transform.d).recipe();
    recipe.offsetX += transform.tx;
    recipe.offsetY += transform.ty;
    return Image(std::make_shared<const Recipe>(std::move(recipe)));
}

}  // namespace ci
