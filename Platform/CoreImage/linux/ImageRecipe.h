#pragma once

#include "Platform/CoreImage/CoreImage.h"
#include "Platform/CoreImage/linux/EncodedPicture.h"

namespace ci {

// A picture, and where its pixels go: the picture's point (x, y), from its lower left corner, lies at
// (x × scaleX + offsetX, y × scaleY + offsetY). The scales are positive.
struct Image::Recipe {
    std::shared_ptr<const EncodedPicture> picture;
    double scaleX = 1;
    double scaleY = 1;
    double offsetX = 0;
    double offsetY = 0;
};

// A copy of the image with both axes scaled, about the origin.
Image scaledImage(const Image& image, double scaleX, double scaleY);

}  // namespace ci
