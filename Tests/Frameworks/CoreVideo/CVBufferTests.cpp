// Attachments.

#include <CoreVideo/CoreVideo.h>

#include <gtest/gtest.h>

#include "Tests/Frameworks/CoreVideo/Buffers.h"

namespace {

using pavo::test::makeBuffer;
using pavo::test::makeDictionary;

cf::Ref<CVPixelBufferRef> makeSmallBuffer()
{
    return makeBuffer(16, 16, kCVPixelFormatType_32BGRA);
}

cf::Ref<CFTypeRef> attachmentOf(const cf::Ref<CVPixelBufferRef>& buffer, CFStringRef key)
{
    return cf::adopt(CVBufferCopyAttachment(buffer.get(), key, nullptr));
}

TEST(CVBuffer, StartsWithoutAttachments)
{
    const auto buffer = makeSmallBuffer();
    EXPECT_FALSE(attachmentOf(buffer, kCVImageBufferColorPrimariesKey));
    EXPECT_EQ(CVBufferCopyAttachments(buffer.get(), kCVAttachmentMode_ShouldPropagate), nullptr);
    EXPECT_EQ(CVBufferCopyAttachments(buffer.get(), kCVAttachmentMode_ShouldNotPropagate), nullptr);
}

TEST(CVBuffer, GivesBackAnAttachmentWithItsMode)
{
    const auto buffer = makeSmallBuffer();
    for (const CVAttachmentMode mode :
         {kCVAttachmentMode_ShouldPropagate, kCVAttachmentMode_ShouldNotPropagate}) {
        CVBufferSetAttachment(buffer.get(), kCVImageBufferYCbCrMatrixKey,
                              kCVImageBufferYCbCrMatrix_ITU_R_601_4, mode);
        CVAttachmentMode found = 99;
        const auto value =
            cf::adopt(CVBufferCopyAttachment(buffer.get(), kCVImageBufferYCbCrMatrixKey, &found));
        ASSERT_TRUE(value);
        EXPECT_TRUE(CFEqual(value.get(), kCVImageBufferYCbCrMatrix_ITU_R_601_4));
        EXPECT_EQ(found, mode);
    }
}

TEST(CVBuffer, HasOneValueForAKeyWhateverTheMode)
{
    const auto buffer = makeSmallBuffer();
    CVBufferSetAttachment(buffer.get(), CFSTR("key"), CFSTR("first"), kCVAttachmentMode_ShouldPropagate);
    CVBufferSetAttachment(buffer.get(), CFSTR("key"), CFSTR("second"), kCVAttachmentMode_ShouldNotPropagate);
    EXPECT_TRUE(CFEqual(attachmentOf(buffer, CFSTR("key")).get(), CFSTR("second")));
    EXPECT_EQ(CVBufferCopyAttachments(buffer.get(), kCVAttachmentMode_ShouldPropagate), nullptr);
}

TEST(CVBuffer, ListsTheAttachmentsOfOneMode)
{
    const auto buffer = makeSmallBuffer();
    CVBufferSetAttachments(buffer.get(),
                           makeDictionary({{CFSTR("a"), CFSTR("1")}, {CFSTR("b"), CFSTR("2")}}).get(),
                           kCVAttachmentMode_ShouldPropagate);
    CVBufferSetAttachment(buffer.get(), CFSTR("c"), CFSTR("3"), kCVAttachmentMode_ShouldNotPropagate);
    const auto propagated =
        cf::adopt(CVBufferCopyAttachments(buffer.get(), kCVAttachmentMode_ShouldPropagate));
    const auto others =
        cf::adopt(CVBufferCopyAttachments(buffer.get(), kCVAttachmentMode_ShouldNotPropagate));
    EXPECT_TRUE(CFEqual(propagated.get(),
                        makeDictionary({{CFSTR("a"), CFSTR("1")}, {CFSTR("b"), CFSTR("2")}}).get()));
    EXPECT_TRUE(CFEqual(others.get(), makeDictionary({{CFSTR("c"), CFSTR("3")}}).get()));
}

TEST(CVBuffer, ForgetsRemovedAttachments)
{
    const auto buffer = makeSmallBuffer();
    CVBufferSetAttachment(buffer.get(), CFSTR("a"), CFSTR("1"), kCVAttachmentMode_ShouldPropagate);
    CVBufferSetAttachment(buffer.get(), CFSTR("b"), CFSTR("2"), kCVAttachmentMode_ShouldPropagate);
    CVBufferRemoveAttachment(buffer.get(), CFSTR("a"));
    EXPECT_FALSE(attachmentOf(buffer, CFSTR("a")));
    EXPECT_TRUE(attachmentOf(buffer, CFSTR("b")));
    CVBufferRemoveAllAttachments(buffer.get());
    EXPECT_FALSE(attachmentOf(buffer, CFSTR("b")));
}

TEST(CVBuffer, KeepsAttachmentsAsLongAsItLives)
{
    const auto value = pavo::test::makeNumber(5);
    {
        const auto buffer = makeSmallBuffer();
        CVBufferSetAttachment(buffer.get(), CFSTR("key"), value.get(), kCVAttachmentMode_ShouldPropagate);
        EXPECT_GT(CFGetRetainCount(value.get()), 1);
    }
    EXPECT_EQ(CFGetRetainCount(value.get()), 1);
}

TEST(CVBuffer, GetsTheAttachmentsThatItsAttributesAskFor)
{
    const auto attributes = makeDictionary(
        {{kCVBufferPropagatedAttachmentsKey, makeDictionary({{CFSTR("a"), CFSTR("1")}}).get()},
         {kCVBufferNonPropagatedAttachmentsKey, makeDictionary({{CFSTR("b"), CFSTR("2")}}).get()}});
    const auto buffer = makeBuffer(16, 16, kCVPixelFormatType_32BGRA, attributes.get());
    CVAttachmentMode mode = 99;
    EXPECT_TRUE(cf::adopt(CVBufferCopyAttachment(buffer.get(), CFSTR("a"), &mode)));
    EXPECT_EQ(mode, CVAttachmentMode{kCVAttachmentMode_ShouldPropagate});
    EXPECT_TRUE(cf::adopt(CVBufferCopyAttachment(buffer.get(), CFSTR("b"), &mode)));
    EXPECT_EQ(mode, CVAttachmentMode{kCVAttachmentMode_ShouldNotPropagate});
}

TEST(CVBuffer, RetainAndReleaseTakeNull)
{
    EXPECT_EQ(CVBufferRetain(nullptr), nullptr);
    CVBufferRelease(nullptr);
    const auto buffer = makeSmallBuffer();
    EXPECT_EQ(CVBufferRetain(buffer.get()), buffer.get());
    EXPECT_EQ(CFGetRetainCount(buffer.get()), 2);
    CVBufferRelease(buffer.get());
    EXPECT_EQ(CFGetRetainCount(buffer.get()), 1);
}

}  // namespace
