#include "CMIOExtensionSupport/PixelBufferPool.h"

#include "Platform/Support/Fatal.h"

#include <string>
#include <utility>
#include <vector>

namespace pavo {

namespace {

cf::Ref<CFMutableDictionaryRef> makeDictionary()
{
    return cf::adopt(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                               &kCFTypeDictionaryValueCallBacks));
}

void setInteger(CFMutableDictionaryRef dictionary, CFStringRef key, std::int64_t value)
{
    const auto number = cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
    CFDictionarySetValue(dictionary, key, number.get());
}

void copyIfPresent(CFDictionaryRef from, CFMutableDictionaryRef to, CFStringRef key)
{
    if (const void* value = CFDictionaryGetValue(from, key)) CFDictionarySetValue(to, key, value);
}

// Without the primaries the other two say nothing about the colours, so the primaries decide about all.
cf::Ref<CFMutableDictionaryRef> colorAttachments(CMFormatDescriptionRef formatDescription)
{
    const auto extensions = CMFormatDescriptionGetExtensions(formatDescription);
    if (!extensions || !CFDictionaryContainsKey(extensions, kCVImageBufferColorPrimariesKey)) return {};
    auto attachments = makeDictionary();
    copyIfPresent(extensions, attachments.get(), kCVImageBufferColorPrimariesKey);
    copyIfPresent(extensions, attachments.get(), kCVImageBufferYCbCrMatrixKey);
    copyIfPresent(extensions, attachments.get(), kCVImageBufferTransferFunctionKey);
    return attachments;
}

cf::Ref<CFMutableDictionaryRef> pixelBufferAttributes(CMFormatDescriptionRef formatDescription)
{
    const auto dimensions = CMVideoFormatDescriptionGetDimensions(formatDescription);
    auto attributes = makeDictionary();
    setInteger(attributes.get(), kCVPixelBufferPixelFormatTypeKey,
               CMFormatDescriptionGetMediaSubType(formatDescription));
    setInteger(attributes.get(), kCVPixelBufferWidthKey, dimensions.width);
    setInteger(attributes.get(), kCVPixelBufferHeightKey, dimensions.height);
    if (const auto attachments = colorAttachments(formatDescription))
        CFDictionarySetValue(attributes.get(), kCVBufferPropagatedAttachmentsKey, attachments.get());
    return attributes;
}

// The status is 0 exactly if there is a buffer.
CVReturn takeBuffer(CVPixelBufferPoolRef pool, std::int64_t threshold, cf::Ref<CVPixelBufferRef>& buffer)
{
    const auto attributes = makeDictionary();
    setInteger(attributes.get(), kCVPixelBufferPoolAllocationThresholdKey, threshold);
    return CVPixelBufferPoolCreatePixelBufferWithAuxAttributes(kCFAllocatorDefault, pool, attributes.get(),
                                                               buffer.receive());
}

}  // namespace

PixelBufferPool::PixelBufferPool(cf::Ref<CMFormatDescriptionRef> formatDescription,
                                 std::int64_t minBufferCount)
    : minBufferCount_(minBufferCount)
{
    rebuild(std::move(formatDescription));
}

cf::Ref<CVPixelBufferRef> PixelBufferPool::pixelBuffer(CMFormatDescriptionRef formatDescription)
{
    if (!CMFormatDescriptionEqual(formatDescription, currentFormatDescription_.get()))
        rebuild(cf::retain(formatDescription));
    cf::Ref<CVPixelBufferRef> buffer;
    // Whatever the status says: without a buffer the caller skips the frame.
    takeBuffer(pixelBufferPool_.get(), minBufferCount_, buffer);
    return buffer;
}

void PixelBufferPool::rebuild(cf::Ref<CMFormatDescriptionRef> formatDescription)
{
    const auto poolAttributes = makeDictionary();
    setInteger(poolAttributes.get(), kCVPixelBufferPoolMinimumBufferCountKey, minBufferCount_);
    const auto attributes = pixelBufferAttributes(formatDescription.get());
    cf::Ref<CVPixelBufferPoolRef> pool;
    const CVReturn status =
        CVPixelBufferPoolCreate(kCFAllocatorDefault, poolAttributes.get(), attributes.get(), pool.receive());
    if (status != kCVReturnSuccess)
        fatalError("Failed to create CVPixelBufferPool with status " + std::to_string(status),
                   {"CMIOExtensionSupport/PixelBufferPool", 72});
    pixelBufferPool_ = std::move(pool);
    prime();
    currentFormatDescription_ = std::move(formatDescription);
}

// Holding all buffers that the pool may have makes it allocate them; it keeps what comes back at the end.
void PixelBufferPool::prime()
{
    std::vector<cf::Ref<CVPixelBufferRef>> buffers;
    cf::Ref<CVPixelBufferRef> buffer;
    while (takeBuffer(pixelBufferPool_.get(), minBufferCount_, buffer) == kCVReturnSuccess)
        buffers.push_back(std::move(buffer));
}

}  // namespace pavo
