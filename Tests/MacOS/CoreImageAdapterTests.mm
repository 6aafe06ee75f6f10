// What the adapters ask of CoreImage, beyond what is tested on all systems.

#include "Platform/CoreImage/CoreImage.h"
#include "Tests/MacOS/AdapterFixture.h"
#include "Tests/Platform/CoreImage/TestPicture.h"

#include <gtest/gtest.h>

namespace pavo::test {
namespace {

class CoreImageAdapter : public AdapterTest {
protected:
    CoreImageAdapter() { setPicture("/picture.png", {200, 100}); }
};

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

void makePictureFile(const std::string& path, std::uint32_t width, std::uint32_t height)
{
    setPicture(path, {static_cast<CGFloat>(width), static_cast<CGFloat>(height)});
}

}  // namespace pavo::test
