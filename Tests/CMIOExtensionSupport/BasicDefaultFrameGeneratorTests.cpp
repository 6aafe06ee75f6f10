// The placeholder frame's steps, with a CoreImage that records what is asked of it.

#include "CMIOExtensionSupport/BasicDefaultFrameGenerator.h"

#include "Tests/Doubles/CoreImage/CoreImageDouble.h"
#include "Tests/Doubles/Foundation/FoundationDouble.h"
#include "Tests/Support/RecordingInterceptor.h"

#include <IOSurface/IOSurface.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace {

// What CVPixelBufferCreate is asked for, and how it answers.
struct BufferCreation {
    enum class Outcome : std::uint8_t { real, failure, noBuffer };

    std::size_t width = 0;
    std::size_t height = 0;
    OSType pixelFormat = 0;
    bool hasDefaultAllocator = false;
    CFIndex attributeCount = 0;
    bool hasEmptySurfaceProperties = false;
};

BufferCreation::Outcome outcome = BufferCreation::Outcome::real;
std::vector<BufferCreation> creations;

}  // namespace

extern "C" {

CVReturn __real_CVPixelBufferCreate(CFAllocatorRef, size_t, size_t, OSType, CFDictionaryRef,
                                    CVPixelBufferRef*);

CVReturn __wrap_CVPixelBufferCreate(CFAllocatorRef allocator, size_t width, size_t height, OSType pixelFormat,
                                    CFDictionaryRef attributes, CVPixelBufferRef* buffer)
{
    const auto properties =
        static_cast<CFDictionaryRef>(CFDictionaryGetValue(attributes, kCVPixelBufferIOSurfacePropertiesKey));
    creations.push_back({width, height, pixelFormat, allocator == kCFAllocatorDefault,
                         CFDictionaryGetCount(attributes),
                         properties && CFDictionaryGetCount(properties) == 0});
    if (outcome == BufferCreation::Outcome::failure) return kCVReturnAllocationFailed;
    if (outcome == BufferCreation::Outcome::noBuffer) return kCVReturnSuccess;
    return __real_CVPixelBufferCreate(allocator, width, height, pixelFormat, attributes, buffer);
}
}

namespace pavo {
namespace {

using test::recordedCoreImageCalls;
using test::recordedRenders;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kPicturePath = "/bundle/configure-pavo-full.png";

class BasicDefaultFrameGeneratorTest : public testing::Test {
protected:
    BasicDefaultFrameGeneratorTest()
    {
        test::resetFoundationDouble();
        test::resetCoreImageDouble();
        test::setResourcePath(kPicturePath);
        outcome = BufferCreation::Outcome::real;
        creations.clear();
    }

    static void expectCovering(CGSize picture, CGSize frame, double scale, double tx, double ty)
    {
        test::resetCoreImageDouble();
        test::setPictureExtent(CGRectMake(0, 0, picture.width, picture.height));
        BasicDefaultFrameGenerator generator;
        ASSERT_TRUE(generator.generateFrame(frame));
        ASSERT_THAT(recordedRenders(), SizeIs(1));
        const auto render = recordedRenders()[0];
        EXPECT_DOUBLE_EQ(render.scale, scale);
        EXPECT_DOUBLE_EQ(render.aspectRatio, 1.0);
        EXPECT_NEAR(render.transform.tx, tx, 1e-9);
        EXPECT_NEAR(render.transform.ty, ty, 1e-9);
        EXPECT_EQ(render.transform.a, 1);
        EXPECT_EQ(render.transform.b, 0);
        EXPECT_EQ(render.transform.c, 0);
        EXPECT_EQ(render.transform.d, 1);
    }

    const test::RecordingInterceptor log;
};

using BasicDefaultFrameGeneratorDeathTest = BasicDefaultFrameGeneratorTest;

TEST_F(BasicDefaultFrameGeneratorTest, LoadsThePictureOfItsOwnBundleWhenItIsMade)
{
    const BasicDefaultFrameGenerator generator;
    EXPECT_THAT(test::resourceRequests(),
                ElementsAre(test::ResourceRequest{"/bundles/BasicDefaultFrameGenerator",
                                                  "configure-pavo-full", "png"}));
    EXPECT_THAT(recordedCoreImageCalls(), ElementsAre("load /bundle/configure-pavo-full.png"));
    EXPECT_THAT(creations, IsEmpty());
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(BasicDefaultFrameGeneratorTest, TwoRequestsInARowRenderOnceLogOnceAndReturnTheIdenticalBuffer)
{
    BasicDefaultFrameGenerator generator;
    const auto first = generator.generateFrame(CGSizeMake(1920, 1080));
    const auto second = generator.generateFrame(CGSizeMake(1920, 1080));
    ASSERT_TRUE(first);
    EXPECT_EQ(first.get(), second.get());
    EXPECT_THAT(recordedRenders(), SizeIs(1));
    EXPECT_EQ(recordedRenders()[0].buffer, first.get());
    EXPECT_THAT(creations, SizeIs(1));
    EXPECT_THAT(log.messages(),
                ElementsAre(test::RecordedMessage{"Generating default frame for size: (1920.0, 1080.0)",
                                                  "BasicDefaultFrameGenerator", OS_LOG_TYPE_INFO}));
}

TEST_F(BasicDefaultFrameGeneratorTest, ThreeRequestsOfAlternatingSizesRenderThreeTimes)
{
    BasicDefaultFrameGenerator generator;
    const auto first = generator.generateFrame(CGSizeMake(1920, 1080));
    const auto second = generator.generateFrame(CGSizeMake(1280, 720));
    const auto third = generator.generateFrame(CGSizeMake(1920, 1080));
    EXPECT_THAT(recordedRenders(), SizeIs(3));
    // All three are held, so equal addresses would mean that a frame given out was drawn into again.
    EXPECT_NE(first.get(), second.get());
    EXPECT_NE(first.get(), third.get());
    EXPECT_EQ(log.count("Generating default frame for size: (1920.0, 1080.0)"), 2U);
    EXPECT_EQ(log.count("Generating default frame for size: (1280.0, 720.0)"), 1U);
}

TEST_F(BasicDefaultFrameGeneratorTest, AWiderPictureIsFittedByHeightAndCroppedEquallyLeftAndRight)
{
    // 2000 × 500 into 400 × 300: scaled to 1200 × 300.
    expectCovering(CGSizeMake(2000, 500), CGSizeMake(400, 300), 0.6, -400, 0);
}

TEST_F(BasicDefaultFrameGeneratorTest, ATallerPictureIsFittedByWidthAndCroppedEquallyTopAndBottom)
{
    // 500 × 1000 into 400 × 300: scaled to 400 × 800.
    expectCovering(CGSizeMake(500, 1000), CGSizeMake(400, 300), 0.8, 0, -250);
}

TEST_F(BasicDefaultFrameGeneratorTest, APictureOfTheFramesShapeIsNotCropped)
{
    expectCovering(CGSizeMake(2560, 1440), CGSizeMake(1920, 1080), 0.75, 0, 0);
}

TEST_F(BasicDefaultFrameGeneratorTest, ASmallPictureIsMadeLarger)
{
    expectCovering(CGSizeMake(100, 100), CGSizeMake(400, 300), 4, 0, -50);
}

TEST_F(BasicDefaultFrameGeneratorTest, ThePlaceOfThePicturesExtentDoesNotMatter)
{
    test::setPictureExtent(CGRectMake(700, 300, 2560, 1440));
    BasicDefaultFrameGenerator generator;
    ASSERT_TRUE(generator.generateFrame(CGSizeMake(1920, 1080)));
    EXPECT_DOUBLE_EQ(recordedRenders().at(0).scale, 0.75);
    EXPECT_EQ(recordedRenders().at(0).transform.tx, 0);
}

TEST_F(BasicDefaultFrameGeneratorTest, ScalesThenMovesThenRenders)
{
    BasicDefaultFrameGenerator generator;
    ASSERT_TRUE(generator.generateFrame(CGSizeMake(640, 480)));
    EXPECT_THAT(recordedCoreImageCalls(),
                ElementsAre("load /bundle/configure-pavo-full.png", "filter CILanczosScaleTransform",
                            "set inputImage", "set inputScale", "set inputAspectRatio", "output", "transform",
                            "render"));
    EXPECT_EQ(recordedRenders().at(0).path, kPicturePath);
}

TEST_F(BasicDefaultFrameGeneratorTest, TheBufferIs32BGRAInASurfaceWithDefaultProperties)
{
    BasicDefaultFrameGenerator generator;
    const auto frame = generator.generateFrame(CGSizeMake(1920, 1080));
    ASSERT_TRUE(frame);
    ASSERT_THAT(creations, SizeIs(1));
    EXPECT_EQ(creations[0].width, 1920U);
    EXPECT_EQ(creations[0].height, 1080U);
    EXPECT_EQ(creations[0].pixelFormat, 0x42475241U);
    EXPECT_TRUE(creations[0].hasDefaultAllocator);
    EXPECT_EQ(creations[0].attributeCount, 1);
    EXPECT_TRUE(creations[0].hasEmptySurfaceProperties);
    EXPECT_NE(CVPixelBufferGetIOSurface(frame.get()), nullptr);
}

TEST_F(BasicDefaultFrameGeneratorTest, AFormatDescriptionGivesItsDimensions)
{
    cf::Ref<CMFormatDescriptionRef> format;
    ASSERT_EQ(CMVideoFormatDescriptionCreate(kCFAllocatorDefault, kCVPixelFormatType_422YpCbCr8, 1280, 720,
                                             nullptr, format.receive()),
              noErr);
    BasicDefaultFrameGenerator generator;
    const auto frame = generator.generateFrame(format.get());
    ASSERT_TRUE(frame);
    EXPECT_EQ(CVPixelBufferGetWidth(frame.get()), 1280U);
    EXPECT_EQ(CVPixelBufferGetHeight(frame.get()), 720U);
    EXPECT_EQ(generator.generateFrame(CGSizeMake(1280, 720)).get(), frame.get());
}

TEST_F(BasicDefaultFrameGeneratorTest, BothOperationsCanBeOverridden)
{
    class Generator final : public BasicDefaultFrameGenerator {
    public:
        using BasicDefaultFrameGenerator::generateFrame;
        cf::Ref<CVPixelBufferRef> generateFrame(CGSize size) override
        {
            sizes.push_back(size.width);
            return {};
        }

        std::vector<double> sizes;
    };
    cf::Ref<CMFormatDescriptionRef> format;
    ASSERT_EQ(CMVideoFormatDescriptionCreate(kCFAllocatorDefault, kCVPixelFormatType_422YpCbCr8, 1280, 720,
                                             nullptr, format.receive()),
              noErr);
    Generator generator;
    BasicDefaultFrameGenerator& base = generator;
    EXPECT_FALSE(base.generateFrame(format.get()));
    EXPECT_THAT(generator.sizes, ElementsAre(1280.0));
}

TEST_F(BasicDefaultFrameGeneratorTest, FractionsAreCutOffTheBufferButCountForTheCacheAndThePicture)
{
    BasicDefaultFrameGenerator generator;
    const auto first = generator.generateFrame(CGSizeMake(640.75, 360.5));
    const auto second = generator.generateFrame(CGSizeMake(640, 360));
    ASSERT_TRUE(first && second);
    EXPECT_EQ(CVPixelBufferGetWidth(first.get()), 640U);
    EXPECT_EQ(CVPixelBufferGetHeight(first.get()), 360U);
    EXPECT_NE(first.get(), second.get());
    EXPECT_EQ(log.count("Generating default frame for size: (640.75, 360.5)"), 1U);
    EXPECT_DOUBLE_EQ(recordedRenders().at(0).scale,
                     360.5 / 1440 > 640.75 / 2560 ? 360.5 / 1440 : 640.75 / 2560);
}

TEST_F(BasicDefaultFrameGeneratorTest, ABufferThatCannotBeCreatedGivesNoneAndLeavesTheEarlierFrameInPlace)
{
    BasicDefaultFrameGenerator generator;
    const auto earlier = generator.generateFrame(CGSizeMake(1920, 1080));
    ASSERT_TRUE(earlier);
    for (const auto failing : {BufferCreation::Outcome::failure, BufferCreation::Outcome::noBuffer}) {
        outcome = failing;
        EXPECT_FALSE(generator.generateFrame(CGSizeMake(1280, 720)));
    }
    EXPECT_EQ(generator.generateFrame(CGSizeMake(1920, 1080)).get(), earlier.get());
    EXPECT_THAT(recordedRenders(), SizeIs(1));
}

TEST_F(BasicDefaultFrameGeneratorTest, ABufferThatCannotBeCreatedLogsNothingElseAndScalesNothing)
{
    BasicDefaultFrameGenerator generator;
    outcome = BufferCreation::Outcome::failure;
    EXPECT_FALSE(generator.generateFrame(CGSizeMake(1280, 720)));
    EXPECT_THAT(log.messages(), SizeIs(1));
    EXPECT_THAT(recordedCoreImageCalls(), SizeIs(1)) << "the loading of the picture";
}

TEST_F(BasicDefaultFrameGeneratorTest, ASizeThatIsNoSizeOfABufferGivesNone)
{
    BasicDefaultFrameGenerator generator;
    EXPECT_FALSE(generator.generateFrame(CGSizeMake(0, 0)));
    EXPECT_FALSE(generator.generateFrame(CGSizeMake(-1, 1080)));
    EXPECT_FALSE(generator.generateFrame(CGSizeMake(0x1p62, 1)));
    EXPECT_THAT(recordedRenders(), IsEmpty());
}

TEST_F(BasicDefaultFrameGeneratorTest, ACachedFrameOutlivesTheGeneratorWithItsHolder)
{
    cf::Ref<CVPixelBufferRef> frame;
    {
        BasicDefaultFrameGenerator generator;
        frame = generator.generateFrame(CGSizeMake(640, 480));
        EXPECT_EQ(CFGetRetainCount(frame.get()), 2);
    }
    EXPECT_EQ(CFGetRetainCount(frame.get()), 1);
}

TEST_F(BasicDefaultFrameGeneratorDeathTest, AMissingPictureEndsTheProcess)
{
    test::setResourcePath(std::nullopt);
    EXPECT_DEATH(BasicDefaultFrameGenerator(),
                 "CMIOExtensionSupport/BasicDefaultFrameGenerator.cpp:[0-9]+: Fatal error: The bundle has no "
                 "picture configure-pavo-full.png");
}

TEST_F(BasicDefaultFrameGeneratorDeathTest, AnUnreadablePictureEndsTheProcess)
{
    test::setPictureExtent(std::nullopt);
    EXPECT_DEATH(BasicDefaultFrameGenerator(), "The picture configure-pavo-full.png cannot be read");
}

TEST_F(BasicDefaultFrameGeneratorDeathTest, AMissingFilterEndsTheProcess)
{
    BasicDefaultFrameGenerator generator;
    test::setFilterExists(false);
    EXPECT_DEATH((void)generator.generateFrame(CGSizeMake(64, 48)), "no filter CILanczosScaleTransform");
}

TEST_F(BasicDefaultFrameGeneratorDeathTest, AMissingFilterOutputEndsTheProcess)
{
    BasicDefaultFrameGenerator generator;
    test::setFilterHasOutput(false);
    EXPECT_DEATH((void)generator.generateFrame(CGSizeMake(64, 48)), "CILanczosScaleTransform gives no image");
}

TEST_F(BasicDefaultFrameGeneratorDeathTest, ASizeThatIsNoWholeNumberOfPixelsEndsTheProcess)
{
    BasicDefaultFrameGenerator generator;
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    constexpr const char* kMessage = "Fatal error: A frame's size must be a number of pixels";
    EXPECT_DEATH((void)generator.generateFrame(CGSizeMake(kNaN, 48)), kMessage);
    EXPECT_DEATH((void)generator.generateFrame(CGSizeMake(64, kNaN)), kMessage);
    EXPECT_DEATH((void)generator.generateFrame(CGSizeMake(64, kInfinity)), kMessage);
    EXPECT_DEATH((void)generator.generateFrame(CGSizeMake(-kInfinity, 48)), kMessage);
    EXPECT_DEATH((void)generator.generateFrame(CGSizeMake(0x1p63, 48)), kMessage);
}

}  // namespace
}  // namespace pavo
