#pragma once

#include <CoreVideo/CVBase.h>
#include <CoreVideo/CVReturn.h>

CF_EXTERN_C_BEGIN

typedef struct __CVBuffer* CVBufferRef;

// Whether an attachment goes along to buffers that are made from this one.
typedef uint32_t CVAttachmentMode;
enum {
    kCVAttachmentMode_ShouldNotPropagate = 0,
    kCVAttachmentMode_ShouldPropagate = 1,
};

// Attributes of a new pixel buffer: dictionaries whose entries become attachments, of either mode.
CF_EXPORT const CFStringRef kCVBufferPropagatedAttachmentsKey;
CF_EXPORT const CFStringRef kCVBufferNonPropagatedAttachmentsKey;

// Null is allowed.
CVBufferRef CVBufferRetain(CVBufferRef buffer);
void CVBufferRelease(CVBufferRef buffer);

// Attachments: what is known of the picture. A key has one value, of one mode. Any thread may call these.

void CVBufferSetAttachment(CVBufferRef buffer, CFStringRef key, CFTypeRef value,
                           CVAttachmentMode attachmentMode);
void CVBufferSetAttachments(CVBufferRef buffer, CFDictionaryRef theAttachments,
                            CVAttachmentMode attachmentMode);
void CVBufferRemoveAttachment(CVBufferRef buffer, CFStringRef key);
void CVBufferRemoveAllAttachments(CVBufferRef buffer);
// Null where there is none. `attachmentMode` may be null, and is written only where there is one.
CFTypeRef CVBufferCopyAttachment(CVBufferRef buffer, CFStringRef key, CVAttachmentMode* attachmentMode);
// Those of one mode; null where there are none.
CFDictionaryRef CVBufferCopyAttachments(CVBufferRef buffer, CVAttachmentMode attachmentMode);

CF_EXTERN_C_END
