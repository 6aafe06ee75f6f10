// What is decided here and elsewhere left open: strides, statuses, limits.

#include <CoreVideo/CoreVideo.h>

#include <gtest/gtest.h>

#include "Tests/Frameworks/CoreVideo/Buffers.h"
#include "Tests/Frameworks/CoreVideo/SurfaceFailure.h"
#include "Tests/Support/Descriptors.h"

namespace {

using pavo::test::makeArray;
using pavo::test::makeBuffer;
using pavo::test::makeDictionary;
using pavo::test::openDescriptorCount;
using pavo::test::surfaceBacked;

CVReturn statusOf(std::size_t width, std::size_t height, OSType format, CFDictionaryRef attributes = nullptr)
{
    cf::Ref<CVPixelBufferRef> buffer;
    return CVPixelBufferCreate(kCFAllocatorDefault, width, height, format, attributes, buffer.receive());
}

CVReturn statusOfAttribute(const pavo::test::Property& attribute)
{
    return statusOf(64, 48, kCVPixelFormatType_32BGRA, makeDictionary({attribute}).get());
}

TEST(CVPixelBufferLinux, DoesNotPadItsRows)
{
    for (const bool isSurfaceBacked : {false, true}) {
        const auto attributes = isSurfaceBacked ? surfaceBacked() : makeDictionary({});
        const auto strideOf = [&attributes](OSType format) {
            return CVPixelBufferGetBytesPerRow(makeBuffer(1366, 2, format, attributes.get()).get());
        };
        EXPECT_EQ(strideOf(kCVPixelFormatType_422YpCbCr8), 1366u * 2);
        EXPECT_EQ(strideOf(kCVPixelFormatType_422YpCbCr8_yuvs), 1366u * 2);
        EXPECT_EQ(strideOf(kCVPixelFormatType_32BGRA), 1366u * 4);
        EXPECT_EQ(strideOf(kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange), 1366u);
        EXPECT_EQ(strideOf(kCVPixelFormatType_420YpCbCr8Planar), 1366u);
    }
}

TEST(CVPixelBufferLinux, RoundsOddSizesUpToWholePairs)
{
    EXPECT_EQ(CVPixelBufferGetBytesPerRow(makeBuffer(65, 3, kCVPixelFormatType_422YpCbCr8).get()), 132u);
    const auto buffer = makeBuffer(65, 3, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange);
    EXPECT_EQ(CVPixelBufferGetWidthOfPlane(buffer.get(), 1), 33u);
    EXPECT_EQ(CVPixelBufferGetHeightOfPlane(buffer.get(), 1), 2u);
    EXPECT_EQ(CVPixelBufferGetBytesPerRowOfPlane(buffer.get(), 1), 66u);
    EXPECT_EQ(CVPixelBufferGetDataSize(buffer.get()), 65u * 3 + 66 * 2);
}

TEST(CVPixelBufferLinux, PutsPlanesOneAfterTheOther)
{
    for (const bool isSurfaceBacked : {false, true}) {
        const auto attributes = isSurfaceBacked ? surfaceBacked() : makeDictionary({});
        const auto buffer = makeBuffer(64, 48, kCVPixelFormatType_420YpCbCr8Planar, attributes.get());
        const auto* base = static_cast<const std::byte*>(CVPixelBufferGetBaseAddress(buffer.get()));
        EXPECT_EQ(CVPixelBufferGetBaseAddressOfPlane(buffer.get(), 0), base);
        EXPECT_EQ(CVPixelBufferGetBaseAddressOfPlane(buffer.get(), 1), base + 64 * 48);
        EXPECT_EQ(CVPixelBufferGetBaseAddressOfPlane(buffer.get(), 2), base + 64 * 48 + 32 * 24);
    }
}

TEST(CVPixelBufferLinux, HasNothingWhereThereIsNoPlane)
{
    const auto packed = makeBuffer(64, 48, kCVPixelFormatType_422YpCbCr8);
    const auto planar = makeBuffer(64, 48, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
    const std::pair<CVPixelBufferRef, std::size_t> absent[] = {{packed.get(), 0}, {planar.get(), 2}};
    for (const auto& [buffer, plane] : absent) {
        EXPECT_EQ(CVPixelBufferGetBaseAddressOfPlane(buffer, plane), nullptr);
        EXPECT_EQ(CVPixelBufferGetWidthOfPlane(buffer, plane), 0u);
        EXPECT_EQ(CVPixelBufferGetHeightOfPlane(buffer, plane), 0u);
        EXPECT_EQ(CVPixelBufferGetBytesPerRowOfPlane(buffer, plane), 0u);
    }
}

TEST(CVPixelBufferLinux, SaysWhyItCannotBeMade)
{
    EXPECT_EQ(statusOf(64, 48, 0x3F3F3F3F), kCVReturnInvalidPixelFormat);
    EXPECT_EQ(statusOf(0, 48, kCVPixelFormatType_32BGRA), kCVReturnInvalidSize);
    EXPECT_EQ(statusOf(64, 0, kCVPixelFormatType_32BGRA), kCVReturnInvalidSize);
    EXPECT_EQ(statusOf(16385, 1, kCVPixelFormatType_32BGRA), kCVReturnInvalidSize);
    EXPECT_EQ(statusOf(1, 16385, kCVPixelFormatType_32BGRA), kCVReturnInvalidSize);
    EXPECT_EQ(statusOf(SIZE_MAX, SIZE_MAX, kCVPixelFormatType_32BGRA), kCVReturnInvalidSize);
}

TEST(CVPixelBufferLinux, RefusesAttributesOfTheWrongTypeOrRange)
{
    EXPECT_EQ(statusOfAttribute({kCVPixelBufferIOSurfacePropertiesKey, kCFBooleanTrue}),
              kCVReturnInvalidPixelBufferAttributes);
    EXPECT_EQ(statusOfAttribute({kCVPixelBufferBytesPerRowAlignmentKey, CFSTR("64")}),
              kCVReturnInvalidPixelBufferAttributes);
    EXPECT_EQ(statusOfAttribute({kCVPixelBufferBytesPerRowAlignmentKey, 0}),
              kCVReturnInvalidPixelBufferAttributes);
    EXPECT_EQ(statusOfAttribute({kCVPixelBufferBytesPerRowAlignmentKey, -16}),
              kCVReturnInvalidPixelBufferAttributes);
    EXPECT_EQ(statusOfAttribute({kCVPixelBufferBytesPerRowAlignmentKey, 4097}),
              kCVReturnInvalidPixelBufferAttributes);
    EXPECT_EQ(statusOfAttribute({kCVPixelBufferWidthKey, 1.5}), kCVReturnInvalidPixelBufferAttributes);
    EXPECT_EQ(statusOfAttribute({kCVPixelBufferPixelFormatTypeKey, makeArray({}).get()}),
              kCVReturnInvalidPixelBufferAttributes);
    EXPECT_EQ(statusOfAttribute({kCVBufferPropagatedAttachmentsKey, CFSTR("attachments")}),
              kCVReturnInvalidPixelBufferAttributes);
    EXPECT_EQ(statusOfAttribute({kCVBufferNonPropagatedAttachmentsKey, CFSTR("attachments")}),
              kCVReturnInvalidPixelBufferAttributes);
}

TEST(CVPixelBufferLinux, RefusesUnknownLockFlags)
{
    const auto buffer = makeBuffer(64, 48, kCVPixelFormatType_32BGRA);
    EXPECT_EQ(CVPixelBufferLockBaseAddress(buffer.get(), 2), kCVReturnInvalidArgument);
    EXPECT_EQ(CVPixelBufferUnlockBaseAddress(buffer.get(), 2), kCVReturnInvalidArgument);
    EXPECT_EQ(CVPixelBufferLockBaseAddress(nullptr, 0), kCVReturnInvalidArgument);
    EXPECT_EQ(CVPixelBufferUnlockBaseAddress(nullptr, 0), kCVReturnInvalidArgument);
}

TEST(CVPixelBufferLinux, SaysWhenThereIsNoSurfaceForIt)
{
    const pavo::test::SurfaceFailure failure;
    EXPECT_EQ(statusOf(64, 48, kCVPixelFormatType_32BGRA, surfaceBacked().get()), kCVReturnAllocationFailed);
}

TEST(CVPixelBufferLinux, EndsForgottenLocksWithItsLastReference)
{
    auto buffer = makeBuffer(64, 48, kCVPixelFormatType_32BGRA, surfaceBacked().get());
    const auto surface = cf::retain(CVPixelBufferGetIOSurface(buffer.get()));
    CVPixelBufferLockBaseAddress(buffer.get(), 0);
    CVPixelBufferLockBaseAddress(buffer.get(), kCVPixelBufferLock_ReadOnly);
    buffer = {};
    EXPECT_EQ(IOSurfaceGetSeed(surface.get()), 1u);
    EXPECT_NE(IOSurfaceUnlock(surface.get(), 0, nullptr), KERN_SUCCESS);
    EXPECT_NE(IOSurfaceUnlock(surface.get(), kIOSurfaceLockReadOnly, nullptr), KERN_SUCCESS);
}

TEST(CVPixelBufferLinux, ClosesTheDescriptorOfItsSurface)
{
    const auto before = openDescriptorCount();
    {
        const auto buffer = makeBuffer(64, 48, kCVPixelFormatType_32BGRA, surfaceBacked().get());
        EXPECT_EQ(openDescriptorCount(), before + 1);
    }
    EXPECT_EQ(openDescriptorCount(), before);
}

}  // namespace
