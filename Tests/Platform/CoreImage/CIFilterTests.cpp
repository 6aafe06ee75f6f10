#include "Platform/CoreImage/CoreImage.h"

#include "Tests/Platform/CoreImage/PictureFile.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace pavo::test;

ci::Image greyImage(std::uint32_t width, std::uint32_t height)
{
    return makeImage(width, height, [](auto, auto) { return Pixel{128, 128, 128, 255}; });
}

ci::Filter lanczos()
{
    return ci::Filter::filterWithName("CILanczosScaleTransform").value();
}

TEST(CIFilter, OnlyTheLanczosScaleExists)
{
    EXPECT_TRUE(ci::Filter::filterWithName("CILanczosScaleTransform"));
    EXPECT_FALSE(ci::Filter::filterWithName("CIGaussianBlur"));
}

TEST(CIFilter, AScaleThatMakesNoPictureGivesNoImage)
{
    for (const double scale :
         {0.0, -1.0, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
        auto filter = lanczos();
        filter.setValue(greyImage(4, 2), ci::kCIInputImageKey);
        filter.setValue(scale, ci::kCIInputScaleKey);
        EXPECT_FALSE(filter.outputImage()) << scale;
    }
}

TEST(CIFilterDeathTest, UnknownKeysAndWrongTypesEndTheProcess)
{
    auto filter = lanczos();
    EXPECT_DEATH(filter.setValue(1.0, "inputRadius"), "The filter has no such input");
    EXPECT_DEATH(filter.setValue(1.0, ci::kCIInputImageKey), "A filter's input has the wrong type");
    EXPECT_DEATH(filter.setValue(greyImage(1, 1), ci::kCIInputScaleKey),
                 "A filter's input has the wrong type");
}

}  // namespace
