// What a pool does on every platform.

#include <CoreVideo/CoreVideo.h>

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <vector>

#include "Tests/Frameworks/CoreVideo/Buffers.h"

namespace {

using pavo::test::makeDictionary;
using pavo::test::Property;
using pavo::test::setProperty;
using pavo::test::wrap;

cf::Ref<CFMutableDictionaryRef> bufferAttributes(bool isSurfaceBacked = false)
{
    auto attributes = makeDictionary({{kCVPixelBufferPixelFormatTypeKey, kCVPixelFormatType_422YpCbCr8},
                                      {kCVPixelBufferWidthKey, 64},
                                      {kCVPixelBufferHeightKey, 48}});
    if (isSurfaceBacked)
        setProperty(attributes, Property(kCVPixelBufferIOSurfacePropertiesKey, makeDictionary({}).get()));
    return attributes;
}

cf::Ref<CVPixelBufferPoolRef> makePool(CFDictionaryRef poolAttributes, CFDictionaryRef attributes)
{
    cf::Ref<CVPixelBufferPoolRef> pool;
    CVPixelBufferPoolCreate(kCFAllocatorDefault, poolAttributes, attributes, pool.receive());
    return pool;
}

cf::Ref<CVPixelBufferPoolRef> makePool(bool isSurfaceBacked = false)
{
    return makePool(nullptr, bufferAttributes(isSurfaceBacked).get());
}

CVReturn take(const cf::Ref<CVPixelBufferPoolRef>& pool, int threshold, cf::Ref<CVPixelBufferRef>& buffer)
{
    return CVPixelBufferPoolCreatePixelBufferWithAuxAttributes(
        kCFAllocatorDefault, pool.get(),
        makeDictionary({{kCVPixelBufferPoolAllocationThresholdKey, threshold}}).get(), buffer.receive());
}

cf::Ref<CVPixelBufferRef> take(const cf::Ref<CVPixelBufferPoolRef>& pool)
{
    cf::Ref<CVPixelBufferRef> buffer;
    CVPixelBufferPoolCreatePixelBuffer(kCFAllocatorDefault, pool.get(), buffer.receive());
    return buffer;
}

TEST(CVPixelBufferPool, MakesBuffersOfItsAttributes)
{
    const auto pool = makePool();
    ASSERT_TRUE(pool);
    EXPECT_EQ(CFGetTypeID(pool.get()), CVPixelBufferPoolGetTypeID());
    const auto buffer = take(pool);
    ASSERT_TRUE(buffer);
    EXPECT_EQ(CVPixelBufferGetWidth(buffer.get()), 64u);
    EXPECT_EQ(CVPixelBufferGetHeight(buffer.get()), 48u);
    EXPECT_EQ(CVPixelBufferGetPixelFormatType(buffer.get()), OSType{kCVPixelFormatType_422YpCbCr8});
}

TEST(CVPixelBufferPool, MakesBuffersInSurfacesIfTheAttributesSaySo)
{
    const auto plain = take(makePool(false));
    EXPECT_EQ(CVPixelBufferGetIOSurface(plain.get()), nullptr);
    const auto backed = take(makePool(true));
    EXPECT_NE(CVPixelBufferGetIOSurface(backed.get()), nullptr);
}

TEST(CVPixelBufferPool, TakesTheFirstFormatOfAList)
{
    const auto attributes = bufferAttributes();
    const auto first = pavo::test::makeNumber(kCVPixelFormatType_32BGRA);
    const auto second = pavo::test::makeNumber(kCVPixelFormatType_422YpCbCr8);
    setProperty(attributes, Property(kCVPixelBufferPixelFormatTypeKey,
                                     pavo::test::makeArray({first.get(), second.get()}).get()));
    const auto buffer = take(makePool(nullptr, attributes.get()));
    ASSERT_TRUE(buffer);
    EXPECT_EQ(CVPixelBufferGetPixelFormatType(buffer.get()), OSType{kCVPixelFormatType_32BGRA});
}

TEST(CVPixelBufferPool, CannotExceedTheThresholdWhileBuffersAreHeld)
{
    for (const bool isSurfaceBacked : {false, true}) {
        const auto pool = makePool(isSurfaceBacked);
        cf::Ref<CVPixelBufferRef> first;
        cf::Ref<CVPixelBufferRef> second;
        cf::Ref<CVPixelBufferRef> third;
        EXPECT_EQ(take(pool, 2, first), kCVReturnSuccess);
        EXPECT_EQ(take(pool, 2, second), kCVReturnSuccess);
        EXPECT_EQ(take(pool, 2, third), kCVReturnWouldExceedAllocationThreshold);
        EXPECT_FALSE(third);
    }
}

TEST(CVPixelBufferPool, GivesABufferAgainWhenOneOfThemIsReleased)
{
    const auto pool = makePool();
    cf::Ref<CVPixelBufferRef> first;
    cf::Ref<CVPixelBufferRef> second;
    take(pool, 1, first);
    ASSERT_EQ(take(pool, 1, second), kCVReturnWouldExceedAllocationThreshold);
    first = {};
    EXPECT_EQ(take(pool, 1, second), kCVReturnSuccess);
    EXPECT_TRUE(second);
}

TEST(CVPixelBufferPool, RecyclesTheMemoryOfReleasedBuffers)
{
    const auto pool = makePool();
    std::set<const void*> addresses;
    for (int round = 0; round < 20; ++round) {
        const auto first = take(pool);
        const auto second = take(pool);
        addresses.insert(CVPixelBufferGetBaseAddress(first.get()));
        addresses.insert(CVPixelBufferGetBaseAddress(second.get()));
    }
    EXPECT_EQ(addresses.size(), 2u);
}

TEST(CVPixelBufferPool, RecyclesSurfaces)
{
    const auto pool = makePool(true);
    auto buffer = take(pool);
    const auto surface = cf::retain(CVPixelBufferGetIOSurface(buffer.get()));
    buffer = {};
    buffer = take(pool);
    EXPECT_EQ(CVPixelBufferGetIOSurface(buffer.get()), surface.get());
}

TEST(CVPixelBufferPool, BuffersOutliveThePool)
{
    for (const bool isSurfaceBacked : {false, true}) {
        auto pool = makePool(isSurfaceBacked);
        const auto buffer = take(pool);
        pool = {};
        ASSERT_EQ(CVPixelBufferLockBaseAddress(buffer.get(), 0), kCVReturnSuccess);
        std::memset(CVPixelBufferGetBaseAddress(buffer.get()), 1, CVPixelBufferGetDataSize(buffer.get()));
        EXPECT_EQ(CVPixelBufferUnlockBaseAddress(buffer.get(), 0), kCVReturnSuccess);
    }
}

TEST(CVPixelBufferPool, SimplyReferencingASurfaceDoesNotPreventItsReturnToThePool)
{
    const auto pool = makePool(true);
    cf::Ref<CVPixelBufferRef> buffer;
    ASSERT_EQ(take(pool, 1, buffer), kCVReturnSuccess);
    const auto surface = cf::retain(CVPixelBufferGetIOSurface(buffer.get()));
    buffer = {};
    EXPECT_EQ(take(pool, 1, buffer), kCVReturnSuccess);
}

TEST(CVPixelBufferPool, DoesNotReuseASurfaceThatIsInUse)
{
    const auto pool = makePool(true);
    cf::Ref<CVPixelBufferRef> buffer;
    ASSERT_EQ(take(pool, 1, buffer), kCVReturnSuccess);
    const auto surface = cf::retain(CVPixelBufferGetIOSurface(buffer.get()));
    IOSurfaceIncrementUseCount(surface.get());
    buffer = {};
    EXPECT_EQ(take(pool, 1, buffer), kCVReturnWouldExceedAllocationThreshold);
    IOSurfaceDecrementUseCount(surface.get());
    EXPECT_EQ(take(pool, 1, buffer), kCVReturnSuccess);
    EXPECT_EQ(CVPixelBufferGetIOSurface(buffer.get()), surface.get());
}

TEST(CVPixelBufferPool, DoesNotReuseASurfaceThatAnotherBufferWraps)
{
    const auto pool = makePool(true);
    auto buffer = take(pool);
    const auto surface = CVPixelBufferGetIOSurface(buffer.get());
    const auto wrapper = wrap(surface);
    buffer = {};
    buffer = take(pool);
    EXPECT_NE(CVPixelBufferGetIOSurface(buffer.get()), surface);
}

TEST(CVPixelBufferPool, GivesItsBuffersThePropagatedAttachments)
{
    const auto attributes = bufferAttributes();
    setProperty(
        attributes,
        Property(
            kCVBufferPropagatedAttachmentsKey,
            makeDictionary({{kCVImageBufferYCbCrMatrixKey, kCVImageBufferYCbCrMatrix_ITU_R_709_2}}).get()));
    const auto pool = makePool(nullptr, attributes.get());
    for (int round = 0; round < 2; ++round) {
        const auto buffer = take(pool);
        CVAttachmentMode mode = 99;
        const auto value =
            cf::adopt(CVBufferCopyAttachment(buffer.get(), kCVImageBufferYCbCrMatrixKey, &mode));
        ASSERT_TRUE(value);
        EXPECT_TRUE(CFEqual(value.get(), kCVImageBufferYCbCrMatrix_ITU_R_709_2));
        EXPECT_EQ(mode, CVAttachmentMode{kCVAttachmentMode_ShouldPropagate});
        CVBufferRemoveAllAttachments(buffer.get());
    }
}

TEST(CVPixelBufferPool, DoesNotHandOnTheAttachmentsOfTheLastUser)
{
    const auto pool = makePool();
    auto buffer = take(pool);
    CVBufferSetAttachment(buffer.get(), CFSTR("key"), CFSTR("value"), kCVAttachmentMode_ShouldPropagate);
    buffer = {};
    buffer = take(pool);
    EXPECT_EQ(CVBufferCopyAttachment(buffer.get(), CFSTR("key"), nullptr), nullptr);
}

TEST(CVPixelBufferPool, RemembersItsAttributes)
{
    const auto poolAttributes = makeDictionary({{kCVPixelBufferPoolMinimumBufferCountKey, 3}});
    const auto attributes = bufferAttributes();
    const auto pool = makePool(poolAttributes.get(), attributes.get());
    EXPECT_TRUE(CFEqual(CVPixelBufferPoolGetAttributes(pool.get()), poolAttributes.get()));
    EXPECT_TRUE(CFEqual(CVPixelBufferPoolGetPixelBufferAttributes(pool.get()), attributes.get()));
}

TEST(CVPixelBufferPool, NeedsSomewhereToPutTheResult)
{
    EXPECT_EQ(CVPixelBufferPoolCreate(kCFAllocatorDefault, nullptr, bufferAttributes().get(), nullptr),
              kCVReturnInvalidArgument);
    EXPECT_EQ(CVPixelBufferPoolCreatePixelBuffer(kCFAllocatorDefault, makePool().get(), nullptr),
              kCVReturnInvalidArgument);
}

TEST(CVPixelBufferPool, RetainAndReleaseTakeNull)
{
    EXPECT_EQ(CVPixelBufferPoolRetain(nullptr), nullptr);
    CVPixelBufferPoolRelease(nullptr);
    const auto pool = makePool();
    EXPECT_EQ(CVPixelBufferPoolRetain(pool.get()), pool.get());
    CVPixelBufferPoolRelease(pool.get());
    EXPECT_EQ(CFGetRetainCount(pool.get()), 1);
}

}  // namespace
