#include <CoreMedia/CoreMedia.h>

#include <gtest/gtest.h>

#include "Tests/Frameworks/CoreVideo/Buffers.h"

namespace {

using pavo::test::makeBuffer;
using pavo::test::makeDictionary;
using pavo::test::Property;

static_assert(kCMMediaType_Video == 0x76696465 && kCMVideoCodecType_422YpCbCr8 == 0x32767579);
static_assert(kCMFormatDescriptionError_InvalidParameter == -12710);
static_assert(kCMFormatDescriptionError_AllocationFailed == -12711);

cf::Ref<CMFormatDescriptionRef> make(std::int32_t width, std::int32_t height,
                                     CFDictionaryRef extensions = nullptr,
                                     CMVideoCodecType codec = kCMVideoCodecType_422YpCbCr8)
{
    cf::Ref<CMFormatDescriptionRef> description;
    CMVideoFormatDescriptionCreate(kCFAllocatorDefault, codec, width, height, extensions,
                                   description.receive());
    return description;
}

cf::Ref<CMFormatDescriptionRef> describe(CVImageBufferRef buffer)
{
    cf::Ref<CMFormatDescriptionRef> description;
    CMVideoFormatDescriptionCreateForImageBuffer(kCFAllocatorDefault, buffer, description.receive());
    return description;
}

cf::Ref<CFMutableDictionaryRef> someColors()
{
    return makeDictionary({{kCVImageBufferYCbCrMatrixKey, kCVImageBufferYCbCrMatrix_ITU_R_709_2}});
}

TEST(CMFormatDescription, HasWhatItWasMadeOf)
{
    const auto description = make(1920, 1080);
    ASSERT_TRUE(description);
    EXPECT_EQ(CFGetTypeID(description.get()), CMFormatDescriptionGetTypeID());
    EXPECT_EQ(CMFormatDescriptionGetMediaType(description.get()), CMMediaType{kCMMediaType_Video});
    EXPECT_EQ(CMFormatDescriptionGetMediaSubType(description.get()),
              FourCharCode{kCMVideoCodecType_422YpCbCr8});
    EXPECT_EQ(CMVideoFormatDescriptionGetDimensions(description.get()).width, 1920);
    EXPECT_EQ(CMVideoFormatDescriptionGetDimensions(description.get()).height, 1080);
    EXPECT_EQ(CMFormatDescriptionGetExtension(description.get(), kCVImageBufferYCbCrMatrixKey), nullptr);
}

TEST(CMFormatDescription, CopiesItsExtensions)
{
    const auto extensions = someColors();
    const auto description = make(64, 48, extensions.get());
    CFDictionaryRemoveValue(extensions.get(), kCVImageBufferYCbCrMatrixKey);
    const auto value = CMFormatDescriptionGetExtension(description.get(), kCVImageBufferYCbCrMatrixKey);
    ASSERT_NE(value, nullptr);
    EXPECT_TRUE(CFEqual(value, kCVImageBufferYCbCrMatrix_ITU_R_709_2));
    EXPECT_TRUE(CFDictionaryContainsKey(CMFormatDescriptionGetExtensions(description.get()),
                                        kCVImageBufferYCbCrMatrixKey));
}

TEST(CMFormatDescription, EqualsOneMadeOfTheSame)
{
    const auto description = make(64, 48, someColors().get());
    EXPECT_TRUE(CMFormatDescriptionEqual(description.get(), make(64, 48, someColors().get()).get()));
    EXPECT_TRUE(CFEqual(description.get(), make(64, 48, someColors().get()).get()));
    EXPECT_EQ(CFHash(description.get()), CFHash(make(64, 48, someColors().get()).get()));
    EXPECT_FALSE(CMFormatDescriptionEqual(description.get(), make(64, 48).get()));
    EXPECT_FALSE(CMFormatDescriptionEqual(make(64, 48).get(), description.get()));
    EXPECT_FALSE(CMFormatDescriptionEqual(description.get(), make(65, 48, someColors().get()).get()));
    EXPECT_FALSE(CMFormatDescriptionEqual(description.get(), make(64, 49, someColors().get()).get()));
    EXPECT_FALSE(CMFormatDescriptionEqual(description.get(),
                                          make(64, 48, someColors().get(), kCVPixelFormatType_32BGRA).get()));
}

TEST(CMFormatDescription, DiffersFromNone)
{
    const auto description = make(64, 48);
    EXPECT_FALSE(CMFormatDescriptionEqual(description.get(), nullptr));
    EXPECT_FALSE(CMFormatDescriptionEqual(nullptr, description.get()));
}

TEST(CMFormatDescription, NeedsSomewhereToPutTheResult)
{
    EXPECT_NE(CMVideoFormatDescriptionCreate(kCFAllocatorDefault, kCMVideoCodecType_422YpCbCr8, 64, 48,
                                             nullptr, nullptr),
              noErr);
}

TEST(CMFormatDescription, DescribesABuffer)
{
    const auto buffer = makeBuffer(64, 48, kCVPixelFormatType_32BGRA);
    CVBufferSetAttachment(buffer.get(), kCVImageBufferYCbCrMatrixKey, kCVImageBufferYCbCrMatrix_ITU_R_601_4,
                          kCVAttachmentMode_ShouldPropagate);
    CVBufferSetAttachment(buffer.get(), CFSTR("of our own"), CFSTR("value"),
                          kCVAttachmentMode_ShouldPropagate);
    const auto description = describe(buffer.get());
    ASSERT_TRUE(description);
    EXPECT_EQ(CMFormatDescriptionGetMediaSubType(description.get()), FourCharCode{kCVPixelFormatType_32BGRA});
    EXPECT_EQ(CMVideoFormatDescriptionGetDimensions(description.get()).width, 64);
    EXPECT_EQ(CMVideoFormatDescriptionGetDimensions(description.get()).height, 48);
    const auto matrix = CMFormatDescriptionGetExtension(description.get(), kCVImageBufferYCbCrMatrixKey);
    ASSERT_NE(matrix, nullptr);
    EXPECT_TRUE(CFEqual(matrix, kCVImageBufferYCbCrMatrix_ITU_R_601_4));
    EXPECT_EQ(CMFormatDescriptionGetExtension(description.get(), CFSTR("of our own")), nullptr);
}

TEST(CMFormatDescription, MatchesTheBufferThatItDescribes)
{
    for (const OSType format : {kCVPixelFormatType_422YpCbCr8, kCVPixelFormatType_32BGRA,
                                kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange}) {
        const auto buffer = makeBuffer(64, 48, format);
        CVBufferSetAttachments(buffer.get(), someColors().get(), kCVAttachmentMode_ShouldPropagate);
        EXPECT_TRUE(CMVideoFormatDescriptionMatchesImageBuffer(describe(buffer.get()).get(), buffer.get()));
    }
}

TEST(CMFormatDescription, DoesNotMatchAnotherSizeOrFormat)
{
    const auto description = describe(makeBuffer(64, 48, kCVPixelFormatType_422YpCbCr8).get());
    for (const auto& other : {makeBuffer(66, 48, kCVPixelFormatType_422YpCbCr8),
                              makeBuffer(64, 50, kCVPixelFormatType_422YpCbCr8),
                              makeBuffer(64, 48, kCVPixelFormatType_422YpCbCr8_yuvs)})
        EXPECT_FALSE(CMVideoFormatDescriptionMatchesImageBuffer(description.get(), other.get()));
}

TEST(CMFormatDescription, ComparesTheCommonKeysAndNoOthers)
{
    const auto buffer = makeBuffer(64, 48, kCVPixelFormatType_422YpCbCr8);
    const auto description = describe(buffer.get());
    CVBufferSetAttachment(buffer.get(), CFSTR("of our own"), CFSTR("value"),
                          kCVAttachmentMode_ShouldPropagate);
    EXPECT_TRUE(CMVideoFormatDescriptionMatchesImageBuffer(description.get(), buffer.get()));
    CVBufferSetAttachments(buffer.get(), someColors().get(), kCVAttachmentMode_ShouldPropagate);
    EXPECT_FALSE(CMVideoFormatDescriptionMatchesImageBuffer(description.get(), buffer.get()));
    const auto colored = describe(buffer.get());
    CVBufferRemoveAllAttachments(buffer.get());
    EXPECT_FALSE(CMVideoFormatDescriptionMatchesImageBuffer(colored.get(), buffer.get()));
}

TEST(CMFormatDescription, SharesTheColorKeysWithImageBuffers)
{
    const auto keys = CMVideoFormatDescriptionGetExtensionKeysCommonWithImageBuffers();
    const auto contains = [keys](CFStringRef key) {
        for (CFIndex i = 0; i < CFArrayGetCount(keys); ++i)
            if (CFEqual(CFArrayGetValueAtIndex(keys, i), key)) return true;
        return false;
    };
    EXPECT_TRUE(contains(kCVImageBufferColorPrimariesKey));
    EXPECT_TRUE(contains(kCVImageBufferTransferFunctionKey));
    EXPECT_TRUE(contains(kCVImageBufferYCbCrMatrixKey));
    EXPECT_TRUE(contains(kCVImageBufferPixelAspectRatioKey));
    EXPECT_FALSE(contains(kCMFormatDescriptionExtension_BytesPerRow));
    EXPECT_TRUE(CFEqual(kCMFormatDescriptionExtension_ColorPrimaries, kCVImageBufferColorPrimariesKey));
    EXPECT_TRUE(CFEqual(kCMFormatDescriptionExtension_TransferFunction, kCVImageBufferTransferFunctionKey));
    EXPECT_TRUE(CFEqual(kCMFormatDescriptionExtension_YCbCrMatrix, kCVImageBufferYCbCrMatrixKey));
}

}  // namespace
