#pragma once

#include <CoreVideo/CVImageBuffer.h>

CF_EXTERN_C_BEGIN

// A picture in memory that the program can read and write.
typedef CVImageBufferRef CVPixelBufferRef;

enum {
    kCVPixelFormatType_32BGRA = 0x42475241,                        // 'BGRA'
    kCVPixelFormatType_422YpCbCr8 = 0x32767579,                    // '2vuy': Cb Y0 Cr Y1
    kCVPixelFormatType_422YpCbCr8_yuvs = 0x79757673,               // 'yuvs': Y0 Cb Y1 Cr
    kCVPixelFormatType_420YpCbCr8Planar = 0x79343230,              // 'y420': planes Y, Cb, Cr; video range
    kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange = 0x34323076,  // '420v': planes Y, CbCr
    kCVPixelFormatType_420YpCbCr8BiPlanarFullRange = 0x34323066,   // '420f': planes Y, CbCr
};

// Attributes of a new pixel buffer.
CF_EXPORT const CFStringRef kCVPixelBufferPixelFormatTypeKey;  // a number, or an array whose first one counts
CF_EXPORT const CFStringRef kCVPixelBufferWidthKey;
CF_EXPORT const CFStringRef kCVPixelBufferHeightKey;
CF_EXPORT const CFStringRef kCVPixelBufferBytesPerRowAlignmentKey;  // rows are padded to a multiple of it
// Present, even as an empty dictionary: the pixels lie in an IOSurface. Absent: in plain memory.
CF_EXPORT const CFStringRef kCVPixelBufferIOSurfacePropertiesKey;

typedef CVOptionFlags CVPixelBufferLockFlags;
enum {
    kCVPixelBufferLock_ReadOnly = 0x00000001,
};

CFTypeID CVPixelBufferGetTypeID(void);

// Null is allowed.
CVPixelBufferRef CVPixelBufferRetain(CVPixelBufferRef texture);
void CVPixelBufferRelease(CVPixelBufferRef texture);

// Rows have no padding unless an alignment asks for it; a row of a 422 format holds whole pairs of pixels.
// A failure writes null.
CVReturn CVPixelBufferCreate(CFAllocatorRef allocator, size_t width, size_t height, OSType pixelFormatType,
                             CFDictionaryRef pixelBufferAttributes, CVPixelBufferRef* pixelBufferOut);

// Whoever reads or writes the pixels locks the buffer while it does. Locks do not exclude each other; they
// say when a surface's content has changed. Unlocking takes the flags of the lock, else it fails.
CVReturn CVPixelBufferLockBaseAddress(CVPixelBufferRef pixelBuffer, CVPixelBufferLockFlags lockFlags);
CVReturn CVPixelBufferUnlockBaseAddress(CVPixelBufferRef pixelBuffer, CVPixelBufferLockFlags unlockFlags);

size_t CVPixelBufferGetWidth(CVPixelBufferRef pixelBuffer);
size_t CVPixelBufferGetHeight(CVPixelBufferRef pixelBuffer);
OSType CVPixelBufferGetPixelFormatType(CVPixelBufferRef pixelBuffer);
// Of a planar buffer: those of its first plane.
void* CVPixelBufferGetBaseAddress(CVPixelBufferRef pixelBuffer);
size_t CVPixelBufferGetBytesPerRow(CVPixelBufferRef pixelBuffer);
// Of all planes together.
size_t CVPixelBufferGetDataSize(CVPixelBufferRef pixelBuffer);

// A buffer that is not planar has no planes: their count is 0, and none has a size or an address.
Boolean CVPixelBufferIsPlanar(CVPixelBufferRef pixelBuffer);
size_t CVPixelBufferGetPlaneCount(CVPixelBufferRef pixelBuffer);
size_t CVPixelBufferGetWidthOfPlane(CVPixelBufferRef pixelBuffer, size_t planeIndex);
size_t CVPixelBufferGetHeightOfPlane(CVPixelBufferRef pixelBuffer, size_t planeIndex);
void* CVPixelBufferGetBaseAddressOfPlane(CVPixelBufferRef pixelBuffer, size_t planeIndex);
size_t CVPixelBufferGetBytesPerRowOfPlane(CVPixelBufferRef pixelBuffer, size_t planeIndex);

CF_EXTERN_C_END
