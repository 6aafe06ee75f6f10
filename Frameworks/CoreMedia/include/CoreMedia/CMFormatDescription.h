#pragma once

#include <CoreMedia/CMBase.h>
#include <CoreVideo/CVImageBuffer.h>

CF_EXTERN_C_BEGIN

// What kind of media it is, and in what format. Immutable.
typedef const struct opaqueCMFormatDescription* CMFormatDescriptionRef;
typedef CMFormatDescriptionRef CMVideoFormatDescriptionRef;

enum {
    kCMFormatDescriptionError_InvalidParameter = -12710,
    kCMFormatDescriptionError_AllocationFailed = -12711,
};

typedef FourCharCode CMMediaType;
enum {
    kCMMediaType_Video = 0x76696465,  // 'vide'
};

typedef FourCharCode CMVideoCodecType;
enum {
    kCMVideoCodecType_422YpCbCr8 = 0x32767579,  // '2vuy'
};

typedef struct {
    int32_t width;
    int32_t height;
} CMVideoDimensions;

#ifdef __cplusplus
static_assert(sizeof(CMVideoDimensions) == 8, "layout of the ABI");
#else
_Static_assert(sizeof(CMVideoDimensions) == 8, "layout of the ABI");
#endif

// Extensions that are the image buffer's attachments of the same names.
CF_EXPORT const CFStringRef kCMFormatDescriptionExtension_ColorPrimaries;
CF_EXPORT const CFStringRef kCMFormatDescriptionExtension_TransferFunction;
CF_EXPORT const CFStringRef kCMFormatDescriptionExtension_YCbCrMatrix;
// A number. Descriptions of buffers that are not planar have it.
CF_EXPORT const CFStringRef kCMFormatDescriptionExtension_BytesPerRow;

CFTypeID CMFormatDescriptionGetTypeID(void);

// Null is allowed, and has nothing: 0, no extensions, no size.

CMMediaType CMFormatDescriptionGetMediaType(CMFormatDescriptionRef desc);
FourCharCode CMFormatDescriptionGetMediaSubType(CMFormatDescriptionRef desc);
// Null where there are none.
CFDictionaryRef CMFormatDescriptionGetExtensions(CMFormatDescriptionRef desc);
CFPropertyListRef CMFormatDescriptionGetExtension(CMFormatDescriptionRef desc, CFStringRef extensionKey);
// Two null descriptions are equal.
Boolean CMFormatDescriptionEqual(CMFormatDescriptionRef formatDescription,
                                 CMFormatDescriptionRef otherFormatDescription);

// The dictionary of extensions, which may be null, is copied. A failure writes null.
OSStatus CMVideoFormatDescriptionCreate(CFAllocatorRef allocator, CMVideoCodecType codecType, int32_t width,
                                        int32_t height, CFDictionaryRef extensions,
                                        CMVideoFormatDescriptionRef* formatDescriptionOut);
// Of the buffer's format, size, common attachments and, where it is not planar, bytes per row.
OSStatus CMVideoFormatDescriptionCreateForImageBuffer(CFAllocatorRef allocator, CVImageBufferRef imageBuffer,
                                                      CMVideoFormatDescriptionRef* formatDescriptionOut);

// Null is allowed.
CMVideoDimensions CMVideoFormatDescriptionGetDimensions(CMVideoFormatDescriptionRef videoDesc);
// The keys that extensions and attachments have in common. Lives as long as the process.
CFArrayRef CMVideoFormatDescriptionGetExtensionKeysCommonWithImageBuffers(void);
// Compares format, size and common keys; bytes per row only where the description has them, so a description
// that was made without fits a buffer of any stride.
Boolean CMVideoFormatDescriptionMatchesImageBuffer(CMVideoFormatDescriptionRef desc,
                                                   CVImageBufferRef imageBuffer);

CF_EXTERN_C_END
