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
    EXPECT_FALSE(ci::Filter::filterWithName(""));
}

TEST(CIFilter, GivesNoImageWithoutAnInputImage)
{
    auto filter = lanczos();
    filter.setValue(0.5, ci::kCIInputScaleKey);
    EXPECT_FALSE(filter.outputImage());
}

TEST(CIFilter, ScalesTheHeightByTheScaleAndTheWidthByScaleTimesAspectRatio)
{
    auto filter = lanczos();
    filter.setValue(greyImage(40, 20), ci::kCIInputImageKey);
    filter.setValue(0.5, ci::kCIInputScaleKey);
    filter.setValue(3.0, ci::kCIInputAspectRatioKey);
    const auto output = filter.outputImage();
    ASSERT_TRUE(output);
    EXPECT_EQ(output->extent().size.width, 60);
    EXPECT_EQ(output->extent().size.height, 10);
}

TEST(CIFilter, ScaleAndAspectRatioDefaultToOne)
{
    auto filter = lanczos();
    filter.setValue(greyImage(4, 2), ci::kCIInputImageKey);
    const auto output = filter.outputImage();
    ASSERT_TRUE(output);
    EXPECT_EQ(output->extent().size.width, 4);
    EXPECT_EQ(output->extent().size.height, 2);
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
