#pragma once

#include "Platform/CoreImage/CoreImage.h"

#include <CoreImage/CoreImage.h>

// What stands behind the values of this face.
namespace ci {

struct Image::Recipe {
    CIImage* image;
};

struct Filter::State {
    CIFilter* filter;
};

struct Context::State {
    CIContext* context;
};

inline Image makeImage(CIImage* image)
{
    return Image(std::make_shared<const Image::Recipe>(image));
}

}  // namespace ci
