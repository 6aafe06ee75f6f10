#include "CMIOExtensionSupport/PixelBufferPool.h"

#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <vector>

#include "Tests/Frameworks/Properties.h"

namespace {

// What the class asked CoreVideo for, and what CoreVideo answers instead of doing its work.
struct Calls {
    std::vector<cf::Ref<CFDictionaryRef>> poolAttributes;
    std::vector<cf::Ref<CFDictionaryRef>> bufferAttributes;
    std::vector<cf::Ref<CFDictionaryRef>> auxAttributes;
    std::optional<CVReturn> poolStatus;
    std::optional<CVReturn> bufferStatus;  // told although there is a buffer
};
Calls calls;

}  // namespace

extern "C" CVReturn __real_CVPixelBufferPoolCreate(CFAllocatorRef allocator, CFDictionaryRef poolAttributes,
                                                   CFDictionaryRef pixelBufferAttributes,
                                                   CVPixelBufferPoolRef* poolOut);
extern "C" CVReturn __wrap_CVPixelBufferPoolCreate(CFAllocatorRef allocator, CFDictionaryRef poolAttributes,
                                                   CFDictionaryRef pixelBufferAttributes,
                                                   CVPixelBufferPoolRef* poolOut)
{
    calls.poolAttributes.push_back(cf::retain(poolAttributes));
    calls.bufferAttributes.push_back(cf::retain(pixelBufferAttributes));
    if (calls.poolStatus) return *calls.poolStatus;
    return __real_CVPixelBufferPoolCreate(allocator, poolAttributes, pixelBufferAttributes, poolOut);
}

extern "C" CVReturn __real_CVPixelBufferPoolCreatePixelBufferWithAuxAttributes(CFAllocatorRef allocator,
                                                                               CVPixelBufferPoolRef pool,
                                                                               CFDictionaryRef auxAttributes,
                                                                               CVPixelBufferRef* bufferOut);
extern "C" CVReturn __wrap_CVPixelBufferPoolCreatePixelBufferWithAuxAttributes(CFAllocatorRef allocator,
                                                                               CVPixelBufferPoolRef pool,
                                                                               CFDictionaryRef auxAttributes,
                                                                               CVPixelBufferRef* bufferOut)
{
    calls.auxAttributes.push_back(cf::retain(auxAttributes));
    const auto status =
        __real_CVPixelBufferPoolCreatePixelBufferWithAuxAttributes(allocator, pool, auxAttributes, bufferOut);
    return calls.bufferStatus.value_or(status);
}

namespace pavo {

namespace {

using test::makeDictionary;
using test::Property;
using test::setProperty;

cf::Ref<CMFormatDescriptionRef> makeFormat(std::int32_t width, std::int32_t height,
                                           CFDictionaryRef extensions = nullptr,
                                           OSType format = kCVPixelFormatType_422YpCbCr8)
{
    cf::Ref<CMFormatDescriptionRef> description;
    CMVideoFormatDescriptionCreate(kCFAllocatorDefault, format, width, height, extensions,
                                   description.receive());
    return description;
}

Property primaries()
{
    return {kCVImageBufferColorPrimariesKey, kCVImageBufferColorPrimaries_ITU_R_709_2};
}
Property matrix()
{
    return {kCVImageBufferYCbCrMatrixKey, kCVImageBufferYCbCrMatrix_ITU_R_601_4};
}
Property transferFunction()
{
    return {kCVImageBufferTransferFunctionKey, kCVImageBufferTransferFunction_ITU_R_709_2};
}

// The attachments that a buffer of a format with these extensions has.
cf::Ref<CFDictionaryRef> attachmentsFor(std::initializer_list<Property> extensions)
{
    const auto format = makeFormat(64, 48, makeDictionary(extensions).get());
    PixelBufferPool pool(format, 1);
    const auto buffer = pool.pixelBuffer(format.get());
    EXPECT_EQ(CVBufferCopyAttachments(buffer.get(), kCVAttachmentMode_ShouldNotPropagate), nullptr);
    return cf::adopt(CVBufferCopyAttachments(buffer.get(), kCVAttachmentMode_ShouldPropagate));
}

class PixelBufferPoolTest : public testing::Test {
protected:
    PixelBufferPoolTest() { calls = {}; }
    ~PixelBufferPoolTest() override { calls = {}; }
};
using PixelBufferPoolDeathTest = PixelBufferPoolTest;

TEST_F(PixelBufferPoolTest, KeepsSixtyBuffersUnlessToldOtherwise)
{
    EXPECT_EQ(PixelBufferPool::kDefaultMinBufferCount, 60);
    const PixelBufferPool pool(makeFormat(16, 16));
    ASSERT_EQ(calls.poolAttributes.size(), 1u);
    EXPECT_TRUE(CFEqual(calls.poolAttributes[0].get(),
                        makeDictionary({{kCVPixelBufferPoolMinimumBufferCountKey, 60}}).get()));
}

TEST_F(PixelBufferPoolTest, AsksForFormatWidthAndHeightAndNothingElse)
{
    const PixelBufferPool pool(makeFormat(64, 48), 2);
    ASSERT_EQ(calls.bufferAttributes.size(), 1u);
    EXPECT_TRUE(CFEqual(calls.bufferAttributes[0].get(),
                        makeDictionary({{kCVPixelBufferPixelFormatTypeKey, kCVPixelFormatType_422YpCbCr8},
                                        {kCVPixelBufferWidthKey, 64},
                                        {kCVPixelBufferHeightKey, 48}})
                            .get()));
}

TEST_F(PixelBufferPoolTest, GivesBuffersOfTheFormatInPlainMemory)
{
    const auto format = makeFormat(64, 48);
    PixelBufferPool pool(format, 2);
    const auto buffer = pool.pixelBuffer(format.get());
    ASSERT_TRUE(buffer);
    EXPECT_TRUE(CMVideoFormatDescriptionMatchesImageBuffer(format.get(), buffer.get()));
    EXPECT_EQ(CVPixelBufferGetIOSurface(buffer.get()), nullptr);
}

TEST_F(PixelBufferPoolTest, AllocatesItsBuffersWhenItIsMadeAndNoneLater)
{
    const auto format = makeFormat(64, 48);
    PixelBufferPool pool(format, 3);
    // Three buffers, and the request that met the threshold.
    EXPECT_EQ(calls.auxAttributes.size(), 4u);
    std::set<const void*> addresses;
    for (int frame = 0; frame < 20; ++frame)
        addresses.insert(CVPixelBufferGetBaseAddress(pool.pixelBuffer(format.get()).get()));
    EXPECT_LE(addresses.size(), 3u);
}

TEST_F(PixelBufferPoolTest, LimitsEveryRequestToItsBufferCount)
{
    const auto format = makeFormat(64, 48);
    PixelBufferPool pool(format, 3);
    const auto buffer = pool.pixelBuffer(format.get());
    ASSERT_EQ(calls.auxAttributes.size(), 5u);
    for (const auto& attributes : calls.auxAttributes)
        EXPECT_TRUE(
            CFEqual(attributes.get(), makeDictionary({{kCVPixelBufferPoolAllocationThresholdKey, 3}}).get()));
}

TEST_F(PixelBufferPoolTest, ReusesThePoolForEqualFormatDescriptions)
{
    const auto extensions = makeDictionary({primaries()});
    const auto format = makeFormat(64, 48, extensions.get());
    PixelBufferPool pool(format, 2);
    EXPECT_TRUE(pool.pixelBuffer(format.get()));
    const auto equal = makeFormat(64, 48, extensions.get());
    ASSERT_NE(equal.get(), format.get());
    EXPECT_TRUE(pool.pixelBuffer(equal.get()));
    EXPECT_EQ(calls.poolAttributes.size(), 1u);
}

TEST_F(PixelBufferPoolTest, RebuildsThePoolForAnotherSizeOrSubtype)
{
    PixelBufferPool pool(makeFormat(64, 48), 2);
    const auto larger = pool.pixelBuffer(makeFormat(128, 96).get());
    EXPECT_EQ(calls.poolAttributes.size(), 2u);
    EXPECT_EQ(CVPixelBufferGetWidth(larger.get()), 128u);
    const auto other =
        pool.pixelBuffer(makeFormat(128, 96, nullptr, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange).get());
    EXPECT_EQ(calls.poolAttributes.size(), 3u);
    EXPECT_EQ(CVPixelBufferGetPlaneCount(other.get()), 2u);
    EXPECT_TRUE(CFEqual(calls.poolAttributes[2].get(), calls.poolAttributes[0].get()));
}

TEST_F(PixelBufferPoolTest, RebuildsThePoolForTheFirstFormatAgain)
{
    const auto format = makeFormat(64, 48);
    PixelBufferPool pool(format, 2);
    EXPECT_TRUE(pool.pixelBuffer(makeFormat(128, 96).get()));
    EXPECT_TRUE(pool.pixelBuffer(format.get()));
    EXPECT_EQ(calls.poolAttributes.size(), 3u);
}

TEST_F(PixelBufferPoolTest, LeavesBuffersOfTheOldPoolToTheirHolders)
{
    const auto format = makeFormat(64, 48);
    PixelBufferPool pool(format, 1);
    const auto held = pool.pixelBuffer(format.get());
    const auto other = pool.pixelBuffer(makeFormat(128, 96).get());
    EXPECT_TRUE(other);
    ASSERT_EQ(CVPixelBufferLockBaseAddress(held.get(), 0), kCVReturnSuccess);
    static_cast<std::uint8_t*>(
        CVPixelBufferGetBaseAddress(held.get()))[CVPixelBufferGetDataSize(held.get()) - 1] = 1;
    EXPECT_EQ(CVPixelBufferUnlockBaseAddress(held.get(), 0), kCVReturnSuccess);
}

TEST_F(PixelBufferPoolTest, GivesNoBufferWhileCallersHoldTheMinimumCount)
{
    const auto format = makeFormat(64, 48);
    PixelBufferPool pool(format, 2);
    auto first = pool.pixelBuffer(format.get());
    const auto second = pool.pixelBuffer(format.get());
    ASSERT_TRUE(first && second);
    EXPECT_FALSE(pool.pixelBuffer(format.get()));
    first = {};
    EXPECT_TRUE(pool.pixelBuffer(format.get()));
}

TEST_F(PixelBufferPoolTest, GivesTheBufferAsItIsWhateverTheStatus)
{
    const auto format = makeFormat(64, 48);
    PixelBufferPool pool(format, 2);
    calls.bufferStatus = kCVReturnError;
    EXPECT_TRUE(pool.pixelBuffer(format.get()));
}

TEST_F(PixelBufferPoolTest, PropagatesAllColorsThatTheFormatHas)
{
    EXPECT_TRUE(CFEqual(attachmentsFor({primaries(), matrix(), transferFunction()}).get(),
                        makeDictionary({primaries(), matrix(), transferFunction()}).get()));
}

TEST_F(PixelBufferPoolTest, PropagatesOnlyTheColorsThatTheFormatHas)
{
    EXPECT_TRUE(CFEqual(attachmentsFor({primaries()}).get(), makeDictionary({primaries()}).get()));
    EXPECT_TRUE(CFEqual(attachmentsFor({primaries(), transferFunction()}).get(),
                        makeDictionary({primaries(), transferFunction()}).get()));
    EXPECT_TRUE(CFEqual(attachmentsFor({primaries(), {CFSTR("of our own"), CFSTR("value")}}).get(),
                        makeDictionary({primaries()}).get()));
}

TEST_F(PixelBufferPoolTest, PropagatesNothingForAMatrixWithoutPrimaries)
{
    EXPECT_FALSE(attachmentsFor({matrix()}));
    EXPECT_FALSE(attachmentsFor({matrix(), transferFunction()}));
    EXPECT_FALSE(
        CFDictionaryContainsKey(calls.bufferAttributes.back().get(), kCVBufferPropagatedAttachmentsKey));
}

TEST_F(PixelBufferPoolTest, LetsGoOfItsFormatDescription)
{
    const auto format = makeFormat(64, 48);
    {
        PixelBufferPool pool(format, 1);
        EXPECT_EQ(CFGetRetainCount(format.get()), 2);
    }
    EXPECT_EQ(CFGetRetainCount(format.get()), 1);
}

TEST_F(PixelBufferPoolDeathTest, NamesFileAndLineWhenThePoolCannotBeCreated)
{
    calls.poolStatus = kCVReturnInvalidArgument;
    EXPECT_DEATH(PixelBufferPool(makeFormat(64, 48), 2),
                 "CMIOExtensionSupport/PixelBufferPool:72: Fatal error: "
                 "Failed to create CVPixelBufferPool with status -6661");
}

TEST_F(PixelBufferPoolDeathTest, EndsTheProcessForAFormatThatThereAreNoBuffersOf)
{
    EXPECT_DEATH(PixelBufferPool(makeFormat(0, 48), 2),
                 "Failed to create CVPixelBufferPool with status -6682");
    EXPECT_DEATH(PixelBufferPool({}, 2), "Failed to create CVPixelBufferPool with status -6682");
}

TEST_F(PixelBufferPoolDeathTest, EndsTheProcessWhenTheNextFormatCannotHaveAPool)
{
    PixelBufferPool pool(makeFormat(64, 48), 2);
    calls.poolStatus = kCVReturnAllocationFailed;
    const auto next = makeFormat(128, 96);
    EXPECT_DEATH((void)pool.pixelBuffer(next.get()), "Failed to create CVPixelBufferPool with status -6662");
}

}  // namespace

}  // namespace pavo
