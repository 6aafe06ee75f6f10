// What images and filters promise on every system: sizes and places. What they look like is each system's.

#include "Platform/CoreImage/CoreImage.h"
#include "Tests/Platform/CoreImage/TestPicture.h"
#include "Tests/Support/Descriptors.h"

#include <gtest/gtest.h>

namespace pavo::test {
namespace {

class CoreImageContract : public testing::Test {
protected:
    ci::Image makeImage(std::uint32_t width, std::uint32_t height) const
    {
        makePictureFile(path(), width, height);
        return ci::Image::imageWithContentsOfFile(path()).value();
    }
    std::string path() const { return folder_.path() + "/picture.png"; }
    static ci::Filter lanczos() { return ci::Filter::filterWithName("CILanczosScaleTransform").value(); }

private:
    TemporaryFolder folder_;
};

TEST_F(CoreImageContract, ExtentIsThePicturesSizeAtTheOrigin)
{
    const auto extent = makeImage(7, 3).extent();
    EXPECT_EQ(extent.origin.x, 0);
    EXPECT_EQ(extent.origin.y, 0);
    EXPECT_EQ(extent.size.width, 7);
    EXPECT_EQ(extent.size.height, 3);
}

TEST_F(CoreImageContract, MissingFileGivesNoImage)
{
    EXPECT_FALSE(ci::Image::imageWithContentsOfFile(path()));
}

TEST_F(CoreImageContract, TransformMovesAndScalesTheExtentOfANewImage)
{
    const auto image = makeImage(10, 20);
    const auto moved = image.imageByApplyingTransform(CGAffineTransformMakeTranslation(-3, 4.5));
    const auto extent = moved.imageByApplyingTransform({2, 0, 0, 0.5, 1, 1}).extent();
    EXPECT_EQ(extent.origin.x, -5);
    EXPECT_EQ(extent.origin.y, 3.25);
    EXPECT_EQ(extent.size.width, 20);
    EXPECT_EQ(extent.size.height, 10);
    EXPECT_EQ(image.extent().origin.x, 0);
}

TEST_F(CoreImageContract, FilterOfAnUnknownNameIsNone)
{
    EXPECT_FALSE(ci::Filter::filterWithName("PavoNoSuchFilter"));
    EXPECT_FALSE(ci::Filter::filterWithName(""));
}

TEST_F(CoreImageContract, FilterGivesNoImageWithoutAnInputImage)
{
    auto filter = lanczos();
    filter.setValue(0.5, ci::kCIInputScaleKey);
    EXPECT_FALSE(filter.outputImage());
}

TEST_F(CoreImageContract, FilterScalesTheHeightByTheScaleAndTheWidthByScaleTimesAspectRatio)
{
    auto filter = lanczos();
    filter.setValue(makeImage(40, 20), ci::kCIInputImageKey);
    filter.setValue(0.5, ci::kCIInputScaleKey);
    filter.setValue(3.0, ci::kCIInputAspectRatioKey);
    const auto output = filter.outputImage();
    ASSERT_TRUE(output);
    EXPECT_EQ(output->extent().size.width, 60);
    EXPECT_EQ(output->extent().size.height, 10);
}

TEST_F(CoreImageContract, ScaleAndAspectRatioOfAFilterAreOneWhereNoneAreSet)
{
    auto filter = lanczos();
    filter.setValue(makeImage(4, 2), ci::kCIInputImageKey);
    const auto output = filter.outputImage();
    ASSERT_TRUE(output);
    EXPECT_EQ(output->extent().size.width, 4);
    EXPECT_EQ(output->extent().size.height, 2);
}

}  // namespace
}  // namespace pavo::test
