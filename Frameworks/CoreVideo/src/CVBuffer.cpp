#include "CVBufferObject.h"
#include "PixelBufferRecycler.h"

#include <utility>

const CFStringRef kCVBufferPropagatedAttachmentsKey = CFSTR("PropagatedAttachments");
const CFStringRef kCVBufferNonPropagatedAttachmentsKey = CFSTR("NonPropagatedAttachments");

const CFStringRef kCVImageBufferColorPrimariesKey = CFSTR("CVImageBufferColorPrimaries");
const CFStringRef kCVImageBufferTransferFunctionKey = CFSTR("CVImageBufferTransferFunction");
const CFStringRef kCVImageBufferYCbCrMatrixKey = CFSTR("CVImageBufferYCbCrMatrix");
const CFStringRef kCVImageBufferGammaLevelKey = CFSTR("CVImageBufferGammaLevel");
const CFStringRef kCVImageBufferICCProfileKey = CFSTR("CVImageBufferICCProfile");
const CFStringRef kCVImageBufferChromaLocationTopFieldKey = CFSTR("CVImageBufferChromaLocationTopField");
const CFStringRef kCVImageBufferChromaLocationBottomFieldKey =
    CFSTR("CVImageBufferChromaLocationBottomField");
const CFStringRef kCVImageBufferCleanApertureKey = CFSTR("CVCleanAperture");
const CFStringRef kCVImageBufferPixelAspectRatioKey = CFSTR("CVPixelAspectRatio");
const CFStringRef kCVImageBufferFieldCountKey = CFSTR("CVFieldCount");
const CFStringRef kCVImageBufferFieldDetailKey = CFSTR("CVFieldDetail");

const CFStringRef kCVImageBufferColorPrimaries_ITU_R_709_2 = CFSTR("ITU_R_709_2");
const CFStringRef kCVImageBufferTransferFunction_ITU_R_709_2 = CFSTR("ITU_R_709_2");
const CFStringRef kCVImageBufferYCbCrMatrix_ITU_R_709_2 = CFSTR("ITU_R_709_2");
const CFStringRef kCVImageBufferYCbCrMatrix_ITU_R_601_4 = CFSTR("ITU_R_601_4");

namespace {

void destroyBuffer(const cf::runtime::Object* object)
{
    auto* const buffer = const_cast<__CVBuffer*>(static_cast<const __CVBuffer*>(object));
    buffer->endUse();
    // The buffer must not keep the pool that is going to keep the buffer.
    if (const auto recycler = std::move(buffer->recycler))
        recycler->takeBack(buffer);
    else
        delete buffer;
}

std::size_t indexOf(CVAttachmentMode mode)
{
    return mode == kCVAttachmentMode_ShouldPropagate ? 1 : 0;
}

void removeFrom(const cf::Ref<CFMutableDictionaryRef>& attachments, CFStringRef key)
{
    if (attachments) CFDictionaryRemoveValue(attachments.get(), key);
}

// With the buffer's mutex held.
void setLocked(__CVBuffer& buffer, const void* key, const void* value, CVAttachmentMode mode)
{
    auto& attachments = buffer.attachments[indexOf(mode)];
    if (!attachments)
        attachments = cf::adopt(CFDictionaryCreateMutable(
            kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    CFDictionarySetValue(attachments.get(), key, value);
    removeFrom(buffer.attachments[1 - indexOf(mode)], static_cast<CFStringRef>(key));
}

}  // namespace

__CVBuffer::__CVBuffer(corevideo::PixelStorage pixels) : Object(classInfo()), storage(std::move(pixels)) {}

__CVBuffer::~__CVBuffer() = default;

const cf::runtime::Class& __CVBuffer::classInfo()
{
    static constinit const cf::runtime::Class info{"CVPixelBuffer", destroyBuffer};
    return info;
}

void __CVBuffer::beginUse(std::shared_ptr<corevideo::PixelBufferRecycler> owner)
{
    recycler = std::move(owner);
    if (storage.surface) IOSurfaceIncrementUseCount(storage.surface.get());
}

void __CVBuffer::endUse()
{
    // Locks that were forgotten end with their holder: the next one must not be able to end them.
    while (CVPixelBufferUnlockBaseAddress(this, 0) == kCVReturnSuccess) {
    }
    while (CVPixelBufferUnlockBaseAddress(this, kCVPixelBufferLock_ReadOnly) == kCVReturnSuccess) {
    }
    if (storage.surface) IOSurfaceDecrementUseCount(storage.surface.get());
}

void __CVBuffer::setAttachments(CFDictionaryRef added, CVAttachmentMode mode)
{
    if (!added) return;
    struct Context {
        __CVBuffer& buffer;
        CVAttachmentMode mode;
    } context{*this, mode};
    const std::lock_guard lock(attachmentsMutex);
    CFDictionaryApplyFunction(
        added,
        [](const void* key, const void* value, void* info) {
            const auto& into = *static_cast<Context*>(info);
            setLocked(into.buffer, key, value, into.mode);
        },
        &context);
}

void __CVBuffer::removeAllAttachments()
{
    const std::lock_guard lock(attachmentsMutex);
    for (const auto& mode : attachments)
        if (mode) CFDictionaryRemoveAllValues(mode.get());
}

bool __CVBuffer::isInUseElsewhere() const
{
    return storage.surface && IOSurfaceIsInUse(storage.surface.get());
}

CVBufferRef CVBufferRetain(CVBufferRef buffer)
{
    if (buffer) CFRetain(buffer);
    return buffer;
}

void CVBufferRelease(CVBufferRef buffer)
{
    if (buffer) CFRelease(buffer);
}

void CVBufferSetAttachment(CVBufferRef buffer, CFStringRef key, CFTypeRef value,
                           CVAttachmentMode attachmentMode)
{
    const std::lock_guard lock(buffer->attachmentsMutex);
    setLocked(*buffer, key, value, attachmentMode);
}

void CVBufferSetAttachments(CVBufferRef buffer, CFDictionaryRef theAttachments,
                            CVAttachmentMode attachmentMode)
{
    buffer->setAttachments(theAttachments, attachmentMode);
}

void CVBufferRemoveAttachment(CVBufferRef buffer, CFStringRef key)
{
    const std::lock_guard lock(buffer->attachmentsMutex);
    for (const auto& mode : buffer->attachments)
        removeFrom(mode, key);
}

void CVBufferRemoveAllAttachments(CVBufferRef buffer)
{
    buffer->removeAllAttachments();
}

CFTypeRef CVBufferCopyAttachment(CVBufferRef buffer, CFStringRef key, CVAttachmentMode* attachmentMode)
{
    const std::lock_guard lock(buffer->attachmentsMutex);
    for (const CVAttachmentMode mode :
         {kCVAttachmentMode_ShouldPropagate, kCVAttachmentMode_ShouldNotPropagate}) {
        const auto& attachments = buffer->attachments[indexOf(mode)];
        const void* value = attachments ? CFDictionaryGetValue(attachments.get(), key) : nullptr;
        if (!value) continue;
        if (attachmentMode) *attachmentMode = mode;
        return CFRetain(value);
    }
    return nullptr;
}

CFDictionaryRef CVBufferCopyAttachments(CVBufferRef buffer, CVAttachmentMode attachmentMode)
{
    const std::lock_guard lock(buffer->attachmentsMutex);
    const auto& attachments = buffer->attachments[indexOf(attachmentMode)];
    if (!attachments || CFDictionaryGetCount(attachments.get()) == 0) return nullptr;
    return CFDictionaryCreateCopy(kCFAllocatorDefault, attachments.get());
}
