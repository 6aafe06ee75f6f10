#include "Platform/CoreImage/CoreImage.h"
#include "Tests/MacOS/AdapterFixture.h"

#include <gtest/gtest.h>

namespace pavo::test {
namespace {

class CoreImageAdapter : public AdapterTest {
protected:
    CoreImageAdapter() { setPicture("/picture.png", {200, 100}); }
};

TEST_F(CoreImageAdapter, ReadsAPictureAndItsSize)
{
    const auto image = ci::Image::imageWithContentsOfFile("/picture.png");
    ASSERT_TRUE(image);
    EXPECT_EQ(image->extent().size.width, 200);
    EXPECT_EQ(image->extent().size.height, 100);
    EXPECT_EQ(calls(), (Strings{"image /picture.png"}));
}

TEST_F(CoreImageAdapter, HasNoImageOfAPictureThatCannotBeRead)
{
    EXPECT_FALSE(ci::Image::imageWithContentsOfFile("/missing.png"));
}

TEST_F(CoreImageAdapter, MovesAnImage)
{
    const auto image = ci::Image::imageWithContentsOfFile("/picture.png");
    const auto moved = image->imageByApplyingTransform(CGAffineTransformMakeTranslation(-3, 4));
    EXPECT_EQ(moved.extent().origin.x, -3);
    EXPECT_EQ(moved.extent().origin.y, 4);
    EXPECT_EQ(image->extent().origin.x, 0);
}

TEST_F(CoreImageAdapter, ScalesByAFilterWithTheSystemsKeys)
{
    auto filter = ci::Filter::filterWithName("CILanczosScaleTransform");
    ASSERT_TRUE(filter);
    EXPECT_FALSE(filter->outputImage());
    filter->setValue(*ci::Image::imageWithContentsOfFile("/picture.png"), ci::kCIInputImageKey);
    filter->setValue(0.5, ci::kCIInputScaleKey);
    filter->setValue(3.0, ci::kCIInputAspectRatioKey);
    const auto image = filter->outputImage();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->extent().size.width, 300);
    EXPECT_EQ(image->extent().size.height, 50);
}

TEST_F(CoreImageAdapter, HasNoFilterOfAnUnknownName)
{
    EXPECT_FALSE(ci::Filter::filterWithName("CINoSuchFilter"));
}

TEST_F(CoreImageAdapter, RendersIntoABuffer)
{
    cf::Ref<CVPixelBufferRef> buffer;
    ASSERT_EQ(
        CVPixelBufferCreate(kCFAllocatorDefault, 8, 4, kCVPixelFormatType_32BGRA, nullptr, buffer.receive()),
        kCVReturnSuccess);
    ci::Context context;
    context.render(*ci::Image::imageWithContentsOfFile("/picture.png"), buffer.get());
    EXPECT_EQ(calls().back(), "render 0,0 200x100 into 8x4");
}

using CoreImageAdapterDeathTest = CoreImageAdapter;

TEST_F(CoreImageAdapterDeathTest, LetsTheSystemRefuseAnUnknownKey)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto filter = ci::Filter::filterWithName("CILanczosScaleTransform");
    EXPECT_DEATH(filter->setValue(1.0, "inputElse"), "No such input: inputElse");
}

}  // namespace
}  // namespace pavo::test
