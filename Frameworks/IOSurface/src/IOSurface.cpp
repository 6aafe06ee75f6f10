#include <IOSurface/IOSurface.h>

#include <CoreFoundation/CFObject.h>
#include <IOSurface/IOSurfacePrivate.h>
#include <os/log_printf.h>

#include <fcntl.h>

#include <atomic>
#include <climits>
#include <utility>

#include "IOSurfaceTable.h"
#include "Platform/Support/Fatal.h"

struct __IOSurface : cf::runtime::Object {
    __IOSurface(const iosurface::Layout& ownLayout, iosurface::Memory ownMemory, bool isOwn)
        : Object(classInfo()),
          layout(ownLayout),
          memory(std::move(ownMemory)),
          isLocal(isOwn)
    {}
    ~__IOSurface()
    {
        // Others would wait for ever for what this process can no longer take back.
        if (const auto rest = useCount.load()) memory.useCount().fetch_sub(rest);
    }
    static const cf::runtime::Class& classInfo();

    const iosurface::Layout layout;
    const iosurface::Memory memory;
    const bool isLocal;
    std::atomic<std::int32_t> useCount = 0;  // of this process
    std::atomic<std::uint32_t> readLocks = 0;
    std::atomic<std::uint32_t> writeLocks = 0;
};

const CFStringRef kIOSurfaceAllocSize = CFSTR("IOSurfaceAllocSize");
const CFStringRef kIOSurfaceWidth = CFSTR("IOSurfaceWidth");
const CFStringRef kIOSurfaceHeight = CFSTR("IOSurfaceHeight");
const CFStringRef kIOSurfaceBytesPerRow = CFSTR("IOSurfaceBytesPerRow");
const CFStringRef kIOSurfaceBytesPerElement = CFSTR("IOSurfaceBytesPerElement");
const CFStringRef kIOSurfacePixelFormat = CFSTR("IOSurfacePixelFormat");
const CFStringRef kIOSurfacePlaneInfo = CFSTR("IOSurfacePlaneInfo");
const CFStringRef kIOSurfacePlaneWidth = CFSTR("IOSurfacePlaneWidth");
const CFStringRef kIOSurfacePlaneHeight = CFSTR("IOSurfacePlaneHeight");
const CFStringRef kIOSurfacePlaneBytesPerRow = CFSTR("IOSurfacePlaneBytesPerRow");
const CFStringRef kIOSurfacePlaneBytesPerElement = CFSTR("IOSurfacePlaneBytesPerElement");
const CFStringRef kIOSurfacePlaneOffset = CFSTR("IOSurfacePlaneOffset");
const CFStringRef kIOSurfacePlaneSize = CFSTR("IOSurfacePlaneSize");

namespace {

constexpr IOSurfaceLockOptions kKnownLockOptions = kIOSurfaceLockReadOnly | kIOSurfaceLockAvoidSync;

os_log_t surfaceLog()
{
    static const os_log_t log = os_log_create("com.tarnwell.macos.cam.platform", "IOSurface");
    return log;
}

void destroySurface(const cf::runtime::Object* object)
{
    auto* const surface = const_cast<__IOSurface*>(static_cast<const __IOSurface*>(object));
    iosurface::Table::shared().remove(surface->memory.identity(), surface);
    delete surface;
}

// A new object in the table, or the one that was there before.
IOSurfaceRef makeSurface(const iosurface::Layout& layout, iosurface::Memory memory, bool isLocal)
{
    const auto identity = memory.identity();
    const IOSurfaceRef surface = cf::runtime::create<__IOSurface>(layout, std::move(memory), isLocal);
    if (!surface) return nullptr;
    const IOSurfaceRef entered = iosurface::Table::shared().enter(identity, surface);
    if (entered != surface) CFRelease(surface);
    return entered;
}

const iosurface::Plane* planeAt(IOSurfaceRef surface, std::size_t index)
{
    return index < surface->layout.planeCount ? &surface->layout.planes[index] : nullptr;
}

// What stands for the surface as a whole where it has planes.
const iosurface::Plane& mainPlane(IOSurfaceRef surface)
{
    return surface->layout.planeCount ? surface->layout.planes[0] : surface->layout.whole;
}

std::atomic<std::uint32_t>& lockCount(IOSurfaceRef surface, IOSurfaceLockOptions options)
{
    return options & kIOSurfaceLockReadOnly ? surface->readLocks : surface->writeLocks;
}

}  // namespace

const cf::runtime::Class& __IOSurface::classInfo()
{
    static constinit const cf::runtime::Class info{"IOSurface", destroySurface};
    return info;
}

CFTypeID IOSurfaceGetTypeID(void)
{
    return cf::runtime::typeID<__IOSurface>();
}

IOSurfaceRef IOSurfaceCreate(CFDictionaryRef properties)
{
    const char* problem = nullptr;
    const auto layout = iosurface::layoutFromProperties(properties, &problem);
    if (layout) problem = iosurface::findProblem(*layout);
    if (!problem)
        if (auto memory = iosurface::Memory::create(*layout, &problem))
            return makeSurface(*layout, std::move(*memory), true);
    os_log_printf(surfaceLog(), OS_LOG_TYPE_ERROR, "Cannot create a surface: %s", problem);
    return nullptr;
}

mach_port_t IOSurfaceCreateMachPort(IOSurfaceRef buffer)
{
    // Not among the standard descriptors: 0 would be no valid port.
    const int fd = ::fcntl(buffer->memory.fd(), F_DUPFD_CLOEXEC, 3);
    return fd < 0 ? MACH_PORT_NULL : static_cast<mach_port_t>(fd);
}

IOSurfaceRef IOSurfaceLookupFromMachPort(mach_port_t port)
{
    const int fd = port == MACH_PORT_NULL || port > INT_MAX ? -1 : static_cast<int>(port);
    if (const auto identity = iosurface::Memory::identityOf(fd))
        if (const auto surface = iosurface::Table::shared().copy(*identity)) return surface;
    iosurface::Layout layout;
    const char* problem = nullptr;
    if (auto memory = iosurface::Memory::open(fd, layout, &problem))
        return makeSurface(layout, std::move(*memory), false);
    os_log_printf(surfaceLog(), OS_LOG_TYPE_ERROR, "Refused a surface: %s", problem);
    return nullptr;
}

kern_return_t IOSurfaceLock(IOSurfaceRef buffer, IOSurfaceLockOptions options, uint32_t* seed)
{
    if (options & ~kKnownLockOptions) return KERN_INVALID_ARGUMENT;
    lockCount(buffer, options).fetch_add(1);
    if (seed) *seed = IOSurfaceGetSeed(buffer);
    return KERN_SUCCESS;
}

kern_return_t IOSurfaceUnlock(IOSurfaceRef buffer, IOSurfaceLockOptions options, uint32_t* seed)
{
    if (options & ~kKnownLockOptions) return KERN_INVALID_ARGUMENT;
    auto& locks = lockCount(buffer, options);
    auto held = locks.load();
    do
        if (held == 0) return KERN_INVALID_ARGUMENT;
    while (!locks.compare_exchange_weak(held, held - 1));
    // Whoever sees the new seed sees the new content.
    if (!(options & kIOSurfaceLockReadOnly)) buffer->memory.seed().fetch_add(1, std::memory_order_release);
    if (seed) *seed = IOSurfaceGetSeed(buffer);
    return KERN_SUCCESS;
}

uint32_t IOSurfaceGetSeed(IOSurfaceRef buffer)
{
    return buffer->memory.seed().load(std::memory_order_acquire);
}

size_t IOSurfaceGetAllocSize(IOSurfaceRef buffer)
{
    return buffer->layout.allocSize;
}

size_t IOSurfaceGetWidth(IOSurfaceRef buffer)
{
    return buffer->layout.whole.width;
}

size_t IOSurfaceGetHeight(IOSurfaceRef buffer)
{
    return buffer->layout.whole.height;
}

size_t IOSurfaceGetBytesPerElement(IOSurfaceRef buffer)
{
    return mainPlane(buffer).bytesPerElement;
}

size_t IOSurfaceGetBytesPerRow(IOSurfaceRef buffer)
{
    return mainPlane(buffer).bytesPerRow;
}

void* IOSurfaceGetBaseAddress(IOSurfaceRef buffer)
{
    return buffer->memory.pixels() + mainPlane(buffer).offset;
}

OSType IOSurfaceGetPixelFormat(IOSurfaceRef buffer)
{
    return buffer->layout.pixelFormat;
}

size_t IOSurfaceGetPlaneCount(IOSurfaceRef buffer)
{
    return buffer->layout.planeCount;
}

size_t IOSurfaceGetWidthOfPlane(IOSurfaceRef buffer, size_t planeIndex)
{
    const auto* plane = planeAt(buffer, planeIndex);
    return plane ? plane->width : 0;
}

size_t IOSurfaceGetHeightOfPlane(IOSurfaceRef buffer, size_t planeIndex)
{
    const auto* plane = planeAt(buffer, planeIndex);
    return plane ? plane->height : 0;
}

size_t IOSurfaceGetBytesPerElementOfPlane(IOSurfaceRef buffer, size_t planeIndex)
{
    const auto* plane = planeAt(buffer, planeIndex);
    return plane ? plane->bytesPerElement : 0;
}

size_t IOSurfaceGetBytesPerRowOfPlane(IOSurfaceRef buffer, size_t planeIndex)
{
    const auto* plane = planeAt(buffer, planeIndex);
    return plane ? plane->bytesPerRow : 0;
}

void* IOSurfaceGetBaseAddressOfPlane(IOSurfaceRef buffer, size_t planeIndex)
{
    const auto* plane = planeAt(buffer, planeIndex);
    return plane ? buffer->memory.pixels() + plane->offset : nullptr;
}

void IOSurfaceIncrementUseCount(IOSurfaceRef buffer)
{
    buffer->useCount.fetch_add(1);
    buffer->memory.useCount().fetch_add(1);
}

void IOSurfaceDecrementUseCount(IOSurfaceRef buffer)
{
    pavo::require(buffer->useCount.fetch_sub(1) > 0,
                  "IOSurfaceDecrementUseCount() called without an increment");
    buffer->memory.useCount().fetch_sub(1);
}

int32_t IOSurfaceGetUseCount(IOSurfaceRef buffer)
{
    return buffer->useCount.load();
}

Boolean IOSurfaceIsInUse(IOSurfaceRef buffer)
{
    // The shared count is what all others say; nobody can talk this process out of its own.
    return buffer->useCount.load() > 0 || buffer->memory.useCount().load() > 0;
}

Boolean IOSurfaceIsLocal(IOSurfaceRef buffer)
{
    return buffer->isLocal;
}
