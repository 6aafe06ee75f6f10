// What a pixel buffer does on every platform.

#include <CoreVideo/CoreVideo.h>

#include <gtest/gtest.h>

#include <cstring>

#include "Tests/Frameworks/CoreVideo/Buffers.h"

extern "C" size_t rowBytesFromC(void);

namespace {

using pavo::test::makeArray;
using pavo::test::makeBuffer;
using pavo::test::makeDictionary;
using pavo::test::surfaceBacked;

static_assert(kCVReturnSuccess == 0 && kCVReturnError == -6660 && kCVReturnInvalidArgument == -6661);
static_assert(kCVReturnAllocationFailed == -6662 && kCVReturnInvalidPixelFormat == -6680);
static_assert(kCVReturnInvalidSize == -6681 && kCVReturnInvalidPixelBufferAttributes == -6682);
static_assert(kCVReturnWouldExceedAllocationThreshold == -6689 && kCVReturnInvalidPoolAttributes == -6691);
static_assert(kCVPixelFormatType_422YpCbCr8 == 0x32767579 && kCVPixelFormatType_32BGRA == 0x42475241);
static_assert(kCVPixelBufferLock_ReadOnly == 1);

bool reads(CFStringRef string, const char* text)
{
    return CFEqual(
        string, cf::adopt(CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8)).get());
}

TEST(CVPixelBuffer, HasKeysOfTheKnownText)
{
    EXPECT_TRUE(reads(kCVPixelBufferPixelFormatTypeKey, "PixelFormatType"));
    EXPECT_TRUE(reads(kCVPixelBufferWidthKey, "Width"));
    EXPECT_TRUE(reads(kCVPixelBufferHeightKey, "Height"));
    EXPECT_TRUE(reads(kCVPixelBufferBytesPerRowAlignmentKey, "BytesPerRowAlignment"));
    EXPECT_TRUE(reads(kCVPixelBufferIOSurfacePropertiesKey, "IOSurfaceProperties"));
    EXPECT_TRUE(reads(kCVPixelBufferPoolMinimumBufferCountKey, "MinimumBufferCount"));
    EXPECT_TRUE(reads(kCVPixelBufferPoolMaximumBufferAgeKey, "MaximumBufferAge"));
    EXPECT_TRUE(reads(kCVPixelBufferPoolAllocationThresholdKey, "BufferPoolAllocationThreshold"));
    EXPECT_TRUE(reads(kCVBufferPropagatedAttachmentsKey, "PropagatedAttachments"));
    EXPECT_TRUE(reads(kCVBufferNonPropagatedAttachmentsKey, "NonPropagatedAttachments"));
    EXPECT_TRUE(reads(kCVImageBufferColorPrimariesKey, "CVImageBufferColorPrimaries"));
    EXPECT_TRUE(reads(kCVImageBufferTransferFunctionKey, "CVImageBufferTransferFunction"));
    EXPECT_TRUE(reads(kCVImageBufferYCbCrMatrixKey, "CVImageBufferYCbCrMatrix"));
    EXPECT_TRUE(reads(kCVImageBufferColorPrimaries_ITU_R_709_2, "ITU_R_709_2"));
    EXPECT_TRUE(reads(kCVImageBufferYCbCrMatrix_ITU_R_601_4, "ITU_R_601_4"));
}

TEST(CVPixelBuffer, HasTheSizeAndFormatThatItWasMadeWith)
{
    const auto buffer = makeBuffer(64, 48, kCVPixelFormatType_422YpCbCr8);
    ASSERT_TRUE(buffer);
    EXPECT_EQ(CFGetTypeID(buffer.get()), CVPixelBufferGetTypeID());
    EXPECT_EQ(CVPixelBufferGetWidth(buffer.get()), 64u);
    EXPECT_EQ(CVPixelBufferGetHeight(buffer.get()), 48u);
    EXPECT_EQ(CVPixelBufferGetPixelFormatType(buffer.get()), OSType{kCVPixelFormatType_422YpCbCr8});
    EXPECT_GE(CVPixelBufferGetBytesPerRow(buffer.get()), 128u);
    EXPECT_GE(CVPixelBufferGetDataSize(buffer.get()), 128u * 48);
}

TEST(CVPixelBuffer, HasNoPlanesWhereTheFormatHasNone)
{
    for (const OSType format :
         {kCVPixelFormatType_422YpCbCr8, kCVPixelFormatType_422YpCbCr8_yuvs, kCVPixelFormatType_32BGRA}) {
        const auto buffer = makeBuffer(64, 48, format);
        ASSERT_TRUE(buffer);
        EXPECT_FALSE(CVPixelBufferIsPlanar(buffer.get()));
        EXPECT_EQ(CVPixelBufferGetPlaneCount(buffer.get()), 0u);
    }
}

TEST(CVPixelBuffer, HasThePlanesOfItsFormat)
{
    for (const OSType format :
         {kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange}) {
        const auto buffer = makeBuffer(64, 48, format);
        ASSERT_TRUE(buffer);
        EXPECT_TRUE(CVPixelBufferIsPlanar(buffer.get()));
        ASSERT_EQ(CVPixelBufferGetPlaneCount(buffer.get()), 2u);
        EXPECT_EQ(CVPixelBufferGetWidthOfPlane(buffer.get(), 0), 64u);
        EXPECT_EQ(CVPixelBufferGetHeightOfPlane(buffer.get(), 0), 48u);
        EXPECT_EQ(CVPixelBufferGetWidthOfPlane(buffer.get(), 1), 32u);
        EXPECT_EQ(CVPixelBufferGetHeightOfPlane(buffer.get(), 1), 24u);
        EXPECT_GE(CVPixelBufferGetBytesPerRowOfPlane(buffer.get(), 1), 64u);
    }
    const auto buffer = makeBuffer(64, 48, kCVPixelFormatType_420YpCbCr8Planar);
    ASSERT_EQ(CVPixelBufferGetPlaneCount(buffer.get()), 3u);
    for (const std::size_t plane : {1u, 2u}) {
        EXPECT_EQ(CVPixelBufferGetWidthOfPlane(buffer.get(), plane), 32u);
        EXPECT_EQ(CVPixelBufferGetHeightOfPlane(buffer.get(), plane), 24u);
    }
}

TEST(CVPixelBuffer, KeepsWhatIsWrittenToEveryPlane)
{
    for (const bool isSurfaceBacked : {false, true}) {
        const auto attributes = isSurfaceBacked ? surfaceBacked() : makeDictionary({});
        const auto buffer = makeBuffer(66, 50, kCVPixelFormatType_420YpCbCr8Planar, attributes.get());
        ASSERT_EQ(CVPixelBufferLockBaseAddress(buffer.get(), 0), kCVReturnSuccess);
        for (std::size_t plane = 0; plane < 3; ++plane)
            std::memset(CVPixelBufferGetBaseAddressOfPlane(buffer.get(), plane), static_cast<int>(plane + 1),
                        CVPixelBufferGetBytesPerRowOfPlane(buffer.get(), plane) *
                            CVPixelBufferGetHeightOfPlane(buffer.get(), plane));
        for (std::size_t plane = 0; plane < 3; ++plane) {
            const auto* pixels =
                static_cast<const std::uint8_t*>(CVPixelBufferGetBaseAddressOfPlane(buffer.get(), plane));
            const auto bytes = CVPixelBufferGetBytesPerRowOfPlane(buffer.get(), plane) *
                               CVPixelBufferGetHeightOfPlane(buffer.get(), plane);
            EXPECT_EQ(pixels[0], plane + 1);
            EXPECT_EQ(pixels[bytes - 1], plane + 1);
        }
        EXPECT_EQ(CVPixelBufferUnlockBaseAddress(buffer.get(), 0), kCVReturnSuccess);
    }
}

TEST(CVPixelBuffer, LiesInASurfaceOnlyIfTheAttributesSaySo)
{
    EXPECT_EQ(CVPixelBufferGetIOSurface(makeBuffer(64, 48, kCVPixelFormatType_32BGRA).get()), nullptr);
    const auto buffer = makeBuffer(64, 48, kCVPixelFormatType_32BGRA, surfaceBacked().get());
    const auto surface = CVPixelBufferGetIOSurface(buffer.get());
    ASSERT_NE(surface, nullptr);
    EXPECT_EQ(IOSurfaceGetWidth(surface), 64u);
    EXPECT_EQ(IOSurfaceGetHeight(surface), 48u);
    EXPECT_EQ(IOSurfaceGetPixelFormat(surface), OSType{kCVPixelFormatType_32BGRA});
    EXPECT_EQ(IOSurfaceGetBytesPerRow(surface), CVPixelBufferGetBytesPerRow(buffer.get()));
    EXPECT_EQ(CVPixelBufferGetIOSurface(nullptr), nullptr);
}

TEST(CVPixelBuffer, PadsItsRowsToTheAlignmentThatIsAskedFor)
{
    const auto attributes = makeDictionary({{kCVPixelBufferBytesPerRowAlignmentKey, 64}});
    const auto buffer = makeBuffer(66, 2, kCVPixelFormatType_422YpCbCr8, attributes.get());
    ASSERT_TRUE(buffer);
    EXPECT_EQ(CVPixelBufferGetBytesPerRow(buffer.get()) % 64, 0u);
    EXPECT_GE(CVPixelBufferGetBytesPerRow(buffer.get()), 132u);
}

TEST(CVPixelBuffer, MustBeUnlockedWithTheFlagsOfTheLock)
{
    for (const bool isSurfaceBacked : {false, true}) {
        const auto attributes = isSurfaceBacked ? surfaceBacked() : makeDictionary({});
        const auto buffer = makeBuffer(64, 48, kCVPixelFormatType_32BGRA, attributes.get());
        ASSERT_EQ(CVPixelBufferLockBaseAddress(buffer.get(), kCVPixelBufferLock_ReadOnly), kCVReturnSuccess);
        EXPECT_NE(CVPixelBufferUnlockBaseAddress(buffer.get(), 0), kCVReturnSuccess);
        EXPECT_EQ(CVPixelBufferUnlockBaseAddress(buffer.get(), kCVPixelBufferLock_ReadOnly),
                  kCVReturnSuccess);
        EXPECT_NE(CVPixelBufferUnlockBaseAddress(buffer.get(), kCVPixelBufferLock_ReadOnly),
                  kCVReturnSuccess);
    }
}

TEST(CVPixelBuffer, CanBeLockedMoreThanOnce)
{
    const auto buffer = makeBuffer(64, 48, kCVPixelFormatType_32BGRA);
    ASSERT_EQ(CVPixelBufferLockBaseAddress(buffer.get(), kCVPixelBufferLock_ReadOnly), kCVReturnSuccess);
    ASSERT_EQ(CVPixelBufferLockBaseAddress(buffer.get(), kCVPixelBufferLock_ReadOnly), kCVReturnSuccess);
    EXPECT_EQ(CVPixelBufferUnlockBaseAddress(buffer.get(), kCVPixelBufferLock_ReadOnly), kCVReturnSuccess);
    EXPECT_EQ(CVPixelBufferUnlockBaseAddress(buffer.get(), kCVPixelBufferLock_ReadOnly), kCVReturnSuccess);
}

TEST(CVPixelBuffer, RefusesAnUnknownFormat)
{
    EXPECT_FALSE(makeBuffer(64, 48, 0x3F3F3F3F));
}

TEST(CVPixelBuffer, NeedsSomewhereToPutTheResult)
{
    EXPECT_EQ(CVPixelBufferCreate(kCFAllocatorDefault, 64, 48, kCVPixelFormatType_32BGRA, nullptr, nullptr),
              kCVReturnInvalidArgument);
}

TEST(CVPixelBuffer, RetainAndReleaseTakeNull)
{
    EXPECT_EQ(CVPixelBufferRetain(nullptr), nullptr);
    CVPixelBufferRelease(nullptr);
    const auto buffer = makeBuffer(16, 16, kCVPixelFormatType_32BGRA);
    EXPECT_EQ(CVPixelBufferRetain(buffer.get()), buffer.get());
    CVPixelBufferRelease(buffer.get());
    EXPECT_EQ(CFGetRetainCount(buffer.get()), 1);
}

TEST(CVPixelBuffer, CanBeUsedFromC)
{
    EXPECT_GE(rowBytesFromC(), 64u * 4);
}

}  // namespace
