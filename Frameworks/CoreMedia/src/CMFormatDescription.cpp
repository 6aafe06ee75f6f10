#include <CoreMedia/CMFormatDescription.h>

#include <CoreFoundation/CFObject.h>
#include <CoreVideo/CoreVideo.h>

#include <cstdint>
#include <iterator>

#include "Platform/Support/Ref.h"

struct opaqueCMFormatDescription : cf::runtime::Object {
    opaqueCMFormatDescription(CMVideoCodecType codec, CMVideoDimensions size, CFDictionaryRef ownExtensions)
        : Object(classInfo()),
          mediaSubType(codec),
          dimensions(size),
          extensions(cf::adopt(ownExtensions && CFDictionaryGetCount(ownExtensions) > 0
                                   ? CFDictionaryCreateCopy(kCFAllocatorDefault, ownExtensions)
                                   : nullptr))
    {}
    static const cf::runtime::Class& classInfo();

    const CMVideoCodecType mediaSubType;
    const CMVideoDimensions dimensions;
    const cf::Ref<CFDictionaryRef> extensions;  // never empty
};

const CFStringRef kCMFormatDescriptionExtension_ColorPrimaries = CFSTR("CVImageBufferColorPrimaries");
const CFStringRef kCMFormatDescriptionExtension_TransferFunction = CFSTR("CVImageBufferTransferFunction");
const CFStringRef kCMFormatDescriptionExtension_YCbCrMatrix = CFSTR("CVImageBufferYCbCrMatrix");
const CFStringRef kCMFormatDescriptionExtension_BytesPerRow = CFSTR("CVBytesPerRow");

namespace {

bool areEqual(const cf::runtime::Object* first, const cf::runtime::Object* second)
{
    const auto& a = *static_cast<CMFormatDescriptionRef>(first);
    const auto& b = *static_cast<CMFormatDescriptionRef>(second);
    if (a.mediaSubType != b.mediaSubType || a.dimensions.width != b.dimensions.width ||
        a.dimensions.height != b.dimensions.height)
        return false;
    if (!a.extensions || !b.extensions) return bool(a.extensions) == bool(b.extensions);
    return CFEqual(a.extensions.get(), b.extensions.get());
}

CFHashCode hash(const cf::runtime::Object* object)
{
    const auto& description = *static_cast<CMFormatDescriptionRef>(object);
    return (CFHashCode{description.mediaSubType} * 31 +
            static_cast<CFHashCode>(description.dimensions.width)) *
               31 +
           static_cast<CFHashCode>(description.dimensions.height);
}

bool areSame(CFTypeRef a, CFTypeRef b)
{
    return a == b || (a && b && CFEqual(a, b));
}

// None for a planar buffer, which has no one number of bytes per row.
cf::Ref<CFNumberRef> bytesPerRowOf(CVImageBufferRef buffer)
{
    if (CVPixelBufferIsPlanar(buffer)) return {};
    const auto bytes = static_cast<std::int64_t>(CVPixelBufferGetBytesPerRow(buffer));
    return cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &bytes));
}

cf::Ref<CFDictionaryRef> extensionsOf(CVImageBufferRef buffer)
{
    const auto extensions = cf::adopt(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    const auto keys = CMVideoFormatDescriptionGetExtensionKeysCommonWithImageBuffers();
    for (CFIndex i = 0; i < CFArrayGetCount(keys); ++i) {
        const auto key = static_cast<CFStringRef>(CFArrayGetValueAtIndex(keys, i));
        if (const auto value = cf::adopt(CVBufferCopyAttachment(buffer, key, nullptr)))
            CFDictionarySetValue(extensions.get(), key, value.get());
    }
    if (const auto bytesPerRow = bytesPerRowOf(buffer))
        CFDictionarySetValue(extensions.get(), kCMFormatDescriptionExtension_BytesPerRow, bytesPerRow.get());
    return cf::retain<CFDictionaryRef>(extensions.get());
}

}  // namespace

const cf::runtime::Class& opaqueCMFormatDescription::classInfo()
{
    static constinit const cf::runtime::Class info{
        "CMFormatDescription", cf::runtime::destroy<opaqueCMFormatDescription>, areEqual, hash};
    return info;
}

CFTypeID CMFormatDescriptionGetTypeID(void)
{
    return cf::runtime::typeID<opaqueCMFormatDescription>();
}

CMMediaType CMFormatDescriptionGetMediaType(CMFormatDescriptionRef desc)
{
    return desc ? CMMediaType{kCMMediaType_Video} : 0;
}

FourCharCode CMFormatDescriptionGetMediaSubType(CMFormatDescriptionRef desc)
{
    return desc ? desc->mediaSubType : 0;
}

CFDictionaryRef CMFormatDescriptionGetExtensions(CMFormatDescriptionRef desc)
{
    return desc ? desc->extensions.get() : nullptr;
}

CFPropertyListRef CMFormatDescriptionGetExtension(CMFormatDescriptionRef desc, CFStringRef extensionKey)
{
    const auto extensions = CMFormatDescriptionGetExtensions(desc);
    return extensions ? CFDictionaryGetValue(extensions, extensionKey) : nullptr;
}

Boolean CMFormatDescriptionEqual(CMFormatDescriptionRef formatDescription,
                                 CMFormatDescriptionRef otherFormatDescription)
{
    return areSame(formatDescription, otherFormatDescription);
}

OSStatus CMVideoFormatDescriptionCreate(CFAllocatorRef, CMVideoCodecType codecType, int32_t width,
                                        int32_t height, CFDictionaryRef extensions,
                                        CMVideoFormatDescriptionRef* formatDescriptionOut)
{
    if (!formatDescriptionOut) return kCMFormatDescriptionError_InvalidParameter;
    *formatDescriptionOut = nullptr;
    if (width < 0 || height < 0) return kCMFormatDescriptionError_InvalidParameter;
    *formatDescriptionOut = cf::runtime::create<opaqueCMFormatDescription>(
        codecType, CMVideoDimensions{width, height}, extensions);
    return *formatDescriptionOut ? OSStatus{noErr} : OSStatus{kCMFormatDescriptionError_AllocationFailed};
}

OSStatus CMVideoFormatDescriptionCreateForImageBuffer(CFAllocatorRef allocator, CVImageBufferRef imageBuffer,
                                                      CMVideoFormatDescriptionRef* formatDescriptionOut)
{
    if (formatDescriptionOut) *formatDescriptionOut = nullptr;
    if (!imageBuffer) return kCMFormatDescriptionError_InvalidParameter;
    return CMVideoFormatDescriptionCreate(allocator, CVPixelBufferGetPixelFormatType(imageBuffer),
                                          static_cast<std::int32_t>(CVPixelBufferGetWidth(imageBuffer)),
                                          static_cast<std::int32_t>(CVPixelBufferGetHeight(imageBuffer)),
                                          extensionsOf(imageBuffer).get(), formatDescriptionOut);
}

CMVideoDimensions CMVideoFormatDescriptionGetDimensions(CMVideoFormatDescriptionRef videoDesc)
{
    return videoDesc ? videoDesc->dimensions : CMVideoDimensions{};
}

CFArrayRef CMVideoFormatDescriptionGetExtensionKeysCommonWithImageBuffers(void)
{
    static const CFArrayRef keys = [] {
        const void* values[] = {kCVImageBufferCleanApertureKey,
                                kCVImageBufferFieldCountKey,
                                kCVImageBufferFieldDetailKey,
                                kCVImageBufferPixelAspectRatioKey,
                                kCVImageBufferColorPrimariesKey,
                                kCVImageBufferTransferFunctionKey,
                                kCVImageBufferGammaLevelKey,
                                kCVImageBufferYCbCrMatrixKey,
                                kCVImageBufferICCProfileKey,
                                kCVImageBufferChromaLocationTopFieldKey,
                                kCVImageBufferChromaLocationBottomFieldKey};
        return CFArrayCreate(kCFAllocatorDefault, values, std::size(values), &kCFTypeArrayCallBacks);
    }();
    return keys;
}

Boolean CMVideoFormatDescriptionMatchesImageBuffer(CMVideoFormatDescriptionRef desc,
                                                   CVImageBufferRef imageBuffer)
{
    if (!desc || !imageBuffer) return false;
    if (desc->mediaSubType != CVPixelBufferGetPixelFormatType(imageBuffer) ||
        static_cast<std::size_t>(desc->dimensions.width) != CVPixelBufferGetWidth(imageBuffer) ||
        static_cast<std::size_t>(desc->dimensions.height) != CVPixelBufferGetHeight(imageBuffer))
        return false;
    const auto keys = CMVideoFormatDescriptionGetExtensionKeysCommonWithImageBuffers();
    for (CFIndex i = 0; i < CFArrayGetCount(keys); ++i) {
        const auto key = static_cast<CFStringRef>(CFArrayGetValueAtIndex(keys, i));
        const auto attachment = cf::adopt(CVBufferCopyAttachment(imageBuffer, key, nullptr));
        if (!areSame(CMFormatDescriptionGetExtension(desc, key), attachment.get())) return false;
    }
    const auto bytesPerRow = CMFormatDescriptionGetExtension(desc, kCMFormatDescriptionExtension_BytesPerRow);
    return !bytesPerRow || areSame(bytesPerRow, bytesPerRowOf(imageBuffer).get());
}
