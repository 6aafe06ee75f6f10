#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <mach/kern_return.h>
#include <mach/port.h>

CF_EXTERN_C_BEGIN

// Pixels that several processes share without copying. On Linux: a sealed memfd that describes itself, so a
// descriptor is all that has to travel.
typedef struct __IOSurface* IOSurfaceRef;

typedef uint32_t IOSurfaceLockOptions;
enum {
    kIOSurfaceLockReadOnly = 0x00000001,   // the content does not change, so neither does the seed
    kIOSurfaceLockAvoidSync = 0x00000002,  // accepted: memory is always in step here
};

// Properties of a new surface. All values are integers, but for the list of planes.
CF_EXPORT const CFStringRef kIOSurfaceAllocSize;
CF_EXPORT const CFStringRef kIOSurfaceWidth;
CF_EXPORT const CFStringRef kIOSurfaceHeight;
CF_EXPORT const CFStringRef kIOSurfaceBytesPerRow;
CF_EXPORT const CFStringRef kIOSurfaceBytesPerElement;
CF_EXPORT const CFStringRef kIOSurfacePixelFormat;
// An array with a dictionary for each plane, of the properties below.
CF_EXPORT const CFStringRef kIOSurfacePlaneInfo;
CF_EXPORT const CFStringRef kIOSurfacePlaneWidth;
CF_EXPORT const CFStringRef kIOSurfacePlaneHeight;
CF_EXPORT const CFStringRef kIOSurfacePlaneBytesPerRow;
CF_EXPORT const CFStringRef kIOSurfacePlaneBytesPerElement;
CF_EXPORT const CFStringRef kIOSurfacePlaneOffset;
CF_EXPORT const CFStringRef kIOSurfacePlaneSize;

CFTypeID IOSurfaceGetTypeID(void);

// Width and height are required. An absent stride is the width without padding, an absent size what the rows
// or planes need, an absent plane offset the end of the plane before. Null where the properties contradict
// each other or exceed the limits, and where memory is out. The content of a new surface is zero.
IOSurfaceRef IOSurfaceCreate(CFDictionaryRef properties);

// A right to the surface for another process: on Linux a descriptor, which the caller closes with
// mach_port_deallocate(). MACH_PORT_NULL where there are no more descriptors.
mach_port_t IOSurfaceCreateMachPort(IOSurfaceRef buffer);
// The surface behind a port, which is only borrowed. The same surface gives the same object for as long as
// one lives in this process. Null, and a line in the log, for anything that is not a sound surface.
IOSurfaceRef IOSurfaceLookupFromMachPort(mach_port_t port);

// Says that the content is about to be read or written, and until when. Locks do not exclude each other.
// `seed` may be null. Unlocking takes the options of the lock; without such a lock it fails.
kern_return_t IOSurfaceLock(IOSurfaceRef buffer, IOSurfaceLockOptions options, uint32_t* seed);
kern_return_t IOSurfaceUnlock(IOSurfaceRef buffer, IOSurfaceLockOptions options, uint32_t* seed);
// Grows by one with each end of a lock for writing, in whichever process.
uint32_t IOSurfaceGetSeed(IOSurfaceRef buffer);

size_t IOSurfaceGetAllocSize(IOSurfaceRef buffer);
size_t IOSurfaceGetWidth(IOSurfaceRef buffer);
size_t IOSurfaceGetHeight(IOSurfaceRef buffer);
size_t IOSurfaceGetBytesPerElement(IOSurfaceRef buffer);
size_t IOSurfaceGetBytesPerRow(IOSurfaceRef buffer);
void* IOSurfaceGetBaseAddress(IOSurfaceRef buffer);
OSType IOSurfaceGetPixelFormat(IOSurfaceRef buffer);

// 0 for a surface without plane information. A plane that is not there has the size 0 and no address.
size_t IOSurfaceGetPlaneCount(IOSurfaceRef buffer);
size_t IOSurfaceGetWidthOfPlane(IOSurfaceRef buffer, size_t planeIndex);
size_t IOSurfaceGetHeightOfPlane(IOSurfaceRef buffer, size_t planeIndex);
size_t IOSurfaceGetBytesPerElementOfPlane(IOSurfaceRef buffer, size_t planeIndex);
size_t IOSurfaceGetBytesPerRowOfPlane(IOSurfaceRef buffer, size_t planeIndex);
void* IOSurfaceGetBaseAddressOfPlane(IOSurfaceRef buffer, size_t planeIndex);

// A surface is in use while any process has a use count on it. The count itself is that of this process; what
// is left of it is taken back when the process's last reference to the surface goes. Taking back more than
// was added is a programming error.
void IOSurfaceIncrementUseCount(IOSurfaceRef buffer);
void IOSurfaceDecrementUseCount(IOSurfaceRef buffer);
int32_t IOSurfaceGetUseCount(IOSurfaceRef buffer);
Boolean IOSurfaceIsInUse(IOSurfaceRef buffer);

CF_EXTERN_C_END
