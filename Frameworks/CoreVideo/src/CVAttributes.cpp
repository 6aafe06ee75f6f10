#include "CVAttributes.h"

#include <cmath>

const CFStringRef kCVPixelBufferPixelFormatTypeKey = CFSTR("PixelFormatType");
const CFStringRef kCVPixelBufferWidthKey = CFSTR("Width");
const CFStringRef kCVPixelBufferHeightKey = CFSTR("Height");
const CFStringRef kCVPixelBufferBytesPerRowAlignmentKey = CFSTR("BytesPerRowAlignment");
const CFStringRef kCVPixelBufferIOSurfacePropertiesKey = CFSTR("IOSurfaceProperties");
const CFStringRef kCVPixelBufferPoolMinimumBufferCountKey = CFSTR("MinimumBufferCount");
const CFStringRef kCVPixelBufferPoolMaximumBufferAgeKey = CFSTR("MaximumBufferAge");
const CFStringRef kCVPixelBufferPoolAllocationThresholdKey = CFSTR("BufferPoolAllocationThreshold");

namespace corevideo {

namespace {

constexpr std::int64_t kMaxBytesPerRowAlignment = 4096;

CFTypeRef valueOf(CFDictionaryRef attributes, CFStringRef key)
{
    return attributes ? CFDictionaryGetValue(attributes, key) : nullptr;
}

std::optional<std::int64_t> integerFrom(CFTypeRef value)
{
    std::int64_t number = 0;
    if (CFGetTypeID(value) != CFNumberGetTypeID() ||
        !CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &number))
        return {};
    return number;
}

// False only for a value that is there and no integer.
bool readInteger(CFDictionaryRef attributes, CFStringRef key, std::optional<std::int64_t>& result)
{
    const auto value = valueOf(attributes, key);
    if (!value) return true;
    result = integerFrom(value);
    return result.has_value();
}

bool readCount(CFDictionaryRef attributes, CFStringRef key, std::optional<std::size_t>& result)
{
    std::optional<std::int64_t> number;
    if (!readInteger(attributes, key, number) || number.value_or(0) < 0) return false;
    if (number) result = static_cast<std::size_t>(*number);
    return true;
}

bool readDictionary(CFDictionaryRef attributes, CFStringRef key, cf::Ref<CFDictionaryRef>& result)
{
    const auto value = valueOf(attributes, key);
    if (!value) return true;
    if (CFGetTypeID(value) != CFDictionaryGetTypeID()) return false;
    result = cf::retain(static_cast<CFDictionaryRef>(value));
    return true;
}

bool readFormat(CFDictionaryRef attributes, std::optional<OSType>& result)
{
    auto value = valueOf(attributes, kCVPixelBufferPixelFormatTypeKey);
    if (!value) return true;
    if (CFGetTypeID(value) == CFArrayGetTypeID()) {
        const auto list = static_cast<CFArrayRef>(value);
        if (CFArrayGetCount(list) == 0) return false;
        value = CFArrayGetValueAtIndex(list, 0);
    }
    const auto number = integerFrom(value);
    // A code whose first character has the high bit may come as a negative number.
    if (number) result = static_cast<OSType>(*number);
    return number.has_value();
}

}  // namespace

bool readBufferAttributes(CFDictionaryRef attributes, BufferAttributes& result)
{
    std::optional<std::int64_t> alignment;
    cf::Ref<CFDictionaryRef> surfaceProperties;
    if (!readFormat(attributes, result.format) ||
        !readInteger(attributes, kCVPixelBufferWidthKey, result.width) ||
        !readInteger(attributes, kCVPixelBufferHeightKey, result.height) ||
        !readInteger(attributes, kCVPixelBufferBytesPerRowAlignmentKey, alignment) ||
        !readDictionary(attributes, kCVPixelBufferIOSurfacePropertiesKey, surfaceProperties) ||
        !readDictionary(attributes, kCVBufferPropagatedAttachmentsKey, result.propagatedAttachments) ||
        !readDictionary(attributes, kCVBufferNonPropagatedAttachmentsKey, result.nonPropagatedAttachments))
        return false;
    result.isSurfaceBacked = bool(surfaceProperties);
    if (alignment) {
        if (*alignment < 1 || *alignment > kMaxBytesPerRowAlignment) return false;
        result.bytesPerRowAlignment = static_cast<std::size_t>(*alignment);
    }
    return true;
}

CVReturn makeRequest(OSType format, std::size_t width, std::size_t height, const BufferAttributes& attributes,
                     StorageRequest& request)
{
    const auto* known = findPixelFormat(format);
    if (!known) return kCVReturnInvalidPixelFormat;
    if (width == 0 || width > kMaxDimension || height == 0 || height > kMaxDimension)
        return kCVReturnInvalidSize;
    request = {known, width, height, attributes.bytesPerRowAlignment, attributes.isSurfaceBacked};
    return kCVReturnSuccess;
}

bool readPoolAttributes(CFDictionaryRef attributes, PoolAttributes& result)
{
    std::optional<std::size_t> minimum;
    if (!readCount(attributes, kCVPixelBufferPoolMinimumBufferCountKey, minimum)) return false;
    result.minimumBufferCount = minimum.value_or(0);

    const auto age = valueOf(attributes, kCVPixelBufferPoolMaximumBufferAgeKey);
    if (!age) return true;
    return CFGetTypeID(age) == CFNumberGetTypeID() &&
           CFNumberGetValue(static_cast<CFNumberRef>(age), kCFNumberFloat64Type, &result.maximumBufferAge) &&
           std::isfinite(result.maximumBufferAge) && result.maximumBufferAge >= 0;
}

bool readAllocationThreshold(CFDictionaryRef attributes, std::optional<std::size_t>& threshold)
{
    return readCount(attributes, kCVPixelBufferPoolAllocationThresholdKey, threshold);
}

}  // namespace corevideo
