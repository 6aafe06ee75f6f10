// Buffers around surfaces that came from elsewhere.

#include <CoreVideo/CoreVideo.h>

#include <gtest/gtest.h>

#include <cstring>

#include "Tests/Frameworks/CoreVideo/Buffers.h"

namespace {

using pavo::test::makeArray;
using pavo::test::makeDictionary;
using pavo::test::wrap;

cf::Ref<CFMutableDictionaryRef> packedProperties(OSType format, int bytesPerElement, int bytesPerRow)
{
    return makeDictionary({{kIOSurfaceWidth, 64},
                           {kIOSurfaceHeight, 48},
                           {kIOSurfacePixelFormat, std::int64_t{format}},
                           {kIOSurfaceBytesPerElement, bytesPerElement},
                           {kIOSurfaceBytesPerRow, bytesPerRow},
                           {kIOSurfaceAllocSize, bytesPerRow * 48}});
}

cf::Ref<IOSurfaceRef> makePacked(OSType format = kCVPixelFormatType_422YpCbCr8, int bytesPerElement = 2,
                                 int bytesPerRow = 128)
{
    return cf::adopt(IOSurfaceCreate(packedProperties(format, bytesPerElement, bytesPerRow).get()));
}

cf::Ref<CFDictionaryRef> planeInfo(int width, int height, int bytesPerElement, int bytesPerRow, int offset)
{
    return cf::retain<CFDictionaryRef>(makeDictionary({{kIOSurfacePlaneWidth, width},
                                                       {kIOSurfacePlaneHeight, height},
                                                       {kIOSurfacePlaneBytesPerElement, bytesPerElement},
                                                       {kIOSurfacePlaneBytesPerRow, bytesPerRow},
                                                       {kIOSurfacePlaneOffset, offset},
                                                       {kIOSurfacePlaneSize, bytesPerRow * height}})
                                           .get());
}

cf::Ref<IOSurfaceRef> makeBiPlanar(const cf::Ref<CFDictionaryRef>& chroma)
{
    const auto planes = makeArray({planeInfo(64, 48, 1, 64, 0).get(), chroma.get()});
    const auto properties = makeDictionary(
        {{kIOSurfaceWidth, 64},
         {kIOSurfaceHeight, 48},
         {kIOSurfacePixelFormat, std::int64_t{kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange}},
         {kIOSurfaceAllocSize, 64 * 200},
         {kIOSurfacePlaneInfo, planes.get()}});
    return cf::adopt(IOSurfaceCreate(properties.get()));
}

CVReturn statusOfWrapping(IOSurfaceRef surface, CFDictionaryRef attributes = nullptr)
{
    cf::Ref<CVPixelBufferRef> buffer;
    return CVPixelBufferCreateWithIOSurface(kCFAllocatorDefault, surface, attributes, buffer.receive());
}

TEST(CVPixelBufferIOSurface, WrapsASurfaceWithoutCopyingIt)
{
    const auto surface = makePacked();
    const auto buffer = wrap(surface.get());
    ASSERT_TRUE(buffer);
    EXPECT_EQ(CVPixelBufferGetIOSurface(buffer.get()), surface.get());
    EXPECT_EQ(CVPixelBufferGetPixelFormatType(buffer.get()), OSType{kCVPixelFormatType_422YpCbCr8});
    EXPECT_EQ(CVPixelBufferGetBytesPerRow(buffer.get()), 128u);
    CVPixelBufferLockBaseAddress(buffer.get(), 0);
    EXPECT_EQ(CVPixelBufferGetBaseAddress(buffer.get()), IOSurfaceGetBaseAddress(surface.get()));
    CVPixelBufferUnlockBaseAddress(buffer.get(), 0);
}

TEST(CVPixelBufferIOSurface, KeepsTheSurfaceAndKeepsItInUse)
{
    const auto surface = makePacked();
    {
        const auto buffer = wrap(surface.get());
        EXPECT_GT(CFGetRetainCount(surface.get()), 1);
        EXPECT_TRUE(IOSurfaceIsInUse(surface.get()));
        const auto second = wrap(surface.get());
        EXPECT_TRUE(IOSurfaceIsInUse(surface.get()));
    }
    EXPECT_EQ(CFGetRetainCount(surface.get()), 1);
    EXPECT_FALSE(IOSurfaceIsInUse(surface.get()));
}

TEST(CVPixelBufferIOSurface, TakesRowsWithPadding)
{
    const auto buffer = wrap(makePacked(kCVPixelFormatType_32BGRA, 4, 320).get());
    ASSERT_TRUE(buffer);
    EXPECT_EQ(CVPixelBufferGetBytesPerRow(buffer.get()), 320u);
}

TEST(CVPixelBufferIOSurface, TakesThePlanesOfTheSurface)
{
    const auto surface = makeBiPlanar(planeInfo(32, 24, 2, 128, 64 * 100));
    const auto buffer = wrap(surface.get());
    ASSERT_TRUE(buffer);
    EXPECT_EQ(CVPixelBufferGetPlaneCount(buffer.get()), 2u);
    EXPECT_EQ(CVPixelBufferGetBytesPerRowOfPlane(buffer.get(), 1), 128u);
    CVPixelBufferLockBaseAddress(buffer.get(), kCVPixelBufferLock_ReadOnly);
    EXPECT_EQ(CVPixelBufferGetBaseAddressOfPlane(buffer.get(), 1),
              IOSurfaceGetBaseAddressOfPlane(surface.get(), 1));
    CVPixelBufferUnlockBaseAddress(buffer.get(), kCVPixelBufferLock_ReadOnly);
}

TEST(CVPixelBufferIOSurface, ChangesTheSeedOfTheSurfaceWhenItWasLockedForWriting)
{
    const auto surface = makePacked();
    const auto buffer = wrap(surface.get());
    const auto before = IOSurfaceGetSeed(surface.get());
    CVPixelBufferLockBaseAddress(buffer.get(), kCVPixelBufferLock_ReadOnly);
    CVPixelBufferUnlockBaseAddress(buffer.get(), kCVPixelBufferLock_ReadOnly);
    EXPECT_EQ(IOSurfaceGetSeed(surface.get()), before);
    CVPixelBufferLockBaseAddress(buffer.get(), 0);
    CVPixelBufferUnlockBaseAddress(buffer.get(), 0);
    EXPECT_NE(IOSurfaceGetSeed(surface.get()), before);
}

TEST(CVPixelBufferIOSurface, RefusesAnUnknownFormat)
{
    EXPECT_EQ(statusOfWrapping(makePacked(0x3F3F3F3F).get()), kCVReturnInvalidPixelFormat);
    EXPECT_EQ(statusOfWrapping(makePacked(0).get()), kCVReturnInvalidPixelFormat);
}

TEST(CVPixelBufferIOSurface, RefusesRowsThatDoNotHoldTheFormat)
{
    EXPECT_EQ(statusOfWrapping(makePacked(kCVPixelFormatType_32BGRA, 1, 64).get()),
              kCVReturnInvalidPixelBufferAttributes);
    EXPECT_EQ(statusOfWrapping(makePacked(kCVPixelFormatType_422YpCbCr8, 1, 127).get()),
              kCVReturnInvalidPixelBufferAttributes);
    EXPECT_EQ(statusOfWrapping(makeBiPlanar(planeInfo(32, 24, 1, 63, 64 * 48)).get()),
              kCVReturnInvalidPixelBufferAttributes);
}

TEST(CVPixelBufferIOSurface, RefusesPlanesThatAreNotThoseOfTheFormat)
{
    EXPECT_EQ(statusOfWrapping(makePacked(kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, 2, 128).get()),
              kCVReturnInvalidPixelBufferAttributes);
    EXPECT_EQ(statusOfWrapping(makeBiPlanar(planeInfo(32, 23, 2, 64, 64 * 48)).get()), kCVReturnInvalidSize);
    EXPECT_EQ(statusOfWrapping(makeBiPlanar(planeInfo(31, 24, 2, 64, 64 * 48)).get()), kCVReturnInvalidSize);
}

TEST(CVPixelBufferIOSurface, RefusesBadAttributesAndNothing)
{
    const auto surface = makePacked();
    EXPECT_EQ(statusOfWrapping(nullptr), kCVReturnInvalidArgument);
    EXPECT_EQ(CVPixelBufferCreateWithIOSurface(kCFAllocatorDefault, surface.get(), nullptr, nullptr),
              kCVReturnInvalidArgument);
    const auto attributes = makeDictionary({{kCVBufferPropagatedAttachmentsKey, CFSTR("attachments")}});
    EXPECT_EQ(statusOfWrapping(surface.get(), attributes.get()), kCVReturnInvalidPixelBufferAttributes);
    EXPECT_FALSE(IOSurfaceIsInUse(surface.get()));
    EXPECT_EQ(CFGetRetainCount(surface.get()), 1);
}

TEST(CVPixelBufferIOSurface, WritesNullWhenItRefuses)
{
    const auto other = makePacked();
    const auto kept = wrap(other.get());
    CVPixelBufferRef buffer = kept.get();
    EXPECT_NE(CVPixelBufferCreateWithIOSurface(kCFAllocatorDefault, makePacked(0).get(), nullptr, &buffer),
              kCVReturnSuccess);
    EXPECT_EQ(buffer, nullptr);
}

}  // namespace
