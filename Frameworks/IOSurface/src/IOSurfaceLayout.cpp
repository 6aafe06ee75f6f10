#include "IOSurfaceLayout.h"

#include <IOSurface/IOSurface.h>

#include <algorithm>

namespace iosurface {

namespace {

const char* findPlaneProblem(const Plane& plane, std::uint64_t allocSize)
{
    if (plane.width == 0 || plane.width > kMaxDimension) return "a width is out of range";
    if (plane.height == 0 || plane.height > kMaxDimension) return "a height is out of range";
    if (plane.bytesPerElement == 0 || plane.bytesPerElement > kMaxBytesPerElement)
        return "the bytes per element are out of range";
    if (plane.bytesPerRow > kMaxBytesPerRow) return "the bytes per row are out of range";
    // The limits above keep these products far from overflow.
    if (plane.bytesPerRow < plane.width * plane.bytesPerElement) return "a row does not hold its width";
    if (plane.size < plane.bytesPerRow * plane.height) return "the rows do not fit the size";
    if (plane.offset > allocSize || plane.size > allocSize - plane.offset)
        return "a plane lies outside the surface";
    return nullptr;
}

// Reads integers from a dictionary of properties, and remembers whether one of them was something else.
class PropertyReader {
public:
    explicit PropertyReader(CFDictionaryRef properties) : properties_(properties) {}

    // Negative numbers become huge ones, which no limit lets pass.
    std::uint64_t integer(CFStringRef key, std::uint64_t defaultValue)
    {
        const void* value = CFDictionaryGetValue(properties_, key);
        if (!value) return defaultValue;
        std::int64_t number = 0;
        if (CFGetTypeID(value) != CFNumberGetTypeID() ||
            !CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &number))
            isSound_ = false;
        return static_cast<std::uint64_t>(number);
    }
    bool isSound() const { return isSound_; }

private:
    const CFDictionaryRef properties_;
    bool isSound_ = true;
};

bool readPlane(CFTypeRef value, std::uint64_t defaultOffset, Plane& plane)
{
    if (CFGetTypeID(value) != CFDictionaryGetTypeID()) return false;
    PropertyReader reader(static_cast<CFDictionaryRef>(value));
    plane.width = reader.integer(kIOSurfacePlaneWidth, 0);
    plane.height = reader.integer(kIOSurfacePlaneHeight, 0);
    plane.bytesPerElement = reader.integer(kIOSurfacePlaneBytesPerElement, 1);
    plane.bytesPerRow = reader.integer(kIOSurfacePlaneBytesPerRow, plane.width * plane.bytesPerElement);
    plane.offset = reader.integer(kIOSurfacePlaneOffset, defaultOffset);
    plane.size = reader.integer(kIOSurfacePlaneSize, plane.bytesPerRow * plane.height);
    return reader.isSound();
}

bool readPlanes(CFTypeRef value, Layout& layout)
{
    if (CFGetTypeID(value) != CFArrayGetTypeID()) return false;
    const auto list = static_cast<CFArrayRef>(value);
    layout.planeCount = static_cast<std::uint64_t>(CFArrayGetCount(list));
    if (layout.planeCount > kMaxPlaneCount) return false;
    std::uint64_t end = 0;
    for (std::uint64_t i = 0; i < layout.planeCount; ++i) {
        auto& plane = layout.planes[i];
        if (!readPlane(CFArrayGetValueAtIndex(list, static_cast<CFIndex>(i)), end, plane)) return false;
        end = plane.offset + plane.size;
    }
    return true;
}

std::uint64_t neededSize(const Layout& layout)
{
    if (layout.planeCount == 0) return layout.whole.bytesPerRow * layout.whole.height;
    std::uint64_t size = 0;
    for (std::uint64_t i = 0; i < layout.planeCount; ++i)
        size = std::max(size, layout.planes[i].offset + layout.planes[i].size);
    return size;
}

Plane planeFromTrailer(const TrailerPlane& plane)
{
    return {plane.width, plane.height, plane.bytesPerElement, plane.bytesPerRow, plane.offset, plane.size};
}

TrailerPlane trailerPlaneFor(const Plane& plane)
{
    return {static_cast<std::uint32_t>(plane.width),
            static_cast<std::uint32_t>(plane.height),
            static_cast<std::uint32_t>(plane.bytesPerElement),
            static_cast<std::uint32_t>(plane.bytesPerRow),
            plane.offset,
            plane.size};
}

}  // namespace

const char* findProblem(const Layout& layout)
{
    if (layout.allocSize == 0 || layout.allocSize > kMaxAllocSize) return "the size is out of range";
    if (layout.planeCount > kMaxPlaneCount) return "there are too many planes";
    if (layout.planeCount == 0) return findPlaneProblem(layout.whole, layout.allocSize);
    if (layout.whole.width == 0 || layout.whole.width > kMaxDimension) return "the width is out of range";
    if (layout.whole.height == 0 || layout.whole.height > kMaxDimension) return "the height is out of range";
    for (std::uint64_t i = 0; i < layout.planeCount; ++i)
        if (const char* problem = findPlaneProblem(layout.planes[i], layout.allocSize)) return problem;
    return nullptr;
}

std::optional<Layout> layoutFromProperties(CFDictionaryRef properties, const char** problem)
{
    if (!properties) {
        *problem = "there are no properties";
        return {};
    }
    Layout layout;
    PropertyReader reader(properties);
    // A code whose first character has the high bit may come as a negative number.
    layout.pixelFormat = static_cast<std::uint32_t>(reader.integer(kIOSurfacePixelFormat, 0));
    layout.whole.width = reader.integer(kIOSurfaceWidth, 0);
    layout.whole.height = reader.integer(kIOSurfaceHeight, 0);
    const void* planes = CFDictionaryGetValue(properties, kIOSurfacePlaneInfo);
    if (planes && !readPlanes(planes, layout)) {
        *problem = "the planes cannot be understood";
        return {};
    }
    if (layout.planeCount == 0) {
        auto& whole = layout.whole;
        whole.bytesPerElement = reader.integer(kIOSurfaceBytesPerElement, 1);
        whole.bytesPerRow = reader.integer(kIOSurfaceBytesPerRow, whole.width * whole.bytesPerElement);
        whole.size = whole.bytesPerRow * whole.height;
    }
    layout.allocSize = reader.integer(kIOSurfaceAllocSize, neededSize(layout));
    if (!reader.isSound()) {
        *problem = "a property is not an integer";
        return {};
    }
    return layout;
}

Layout layoutFromTrailer(const Trailer& trailer)
{
    Layout layout;
    layout.pixelFormat = trailer.pixelFormat;
    layout.allocSize = trailer.allocSize;
    layout.whole.width = trailer.width;
    layout.whole.height = trailer.height;
    layout.planeCount = trailer.planeCount;
    if (layout.planeCount == 0) {
        layout.whole.bytesPerElement = trailer.bytesPerElement;
        layout.whole.bytesPerRow = trailer.bytesPerRow;
        layout.whole.size = layout.whole.bytesPerRow * layout.whole.height;
    }
    for (std::uint64_t i = 0; i < std::min(layout.planeCount, kMaxPlaneCount); ++i)
        layout.planes[i] = planeFromTrailer(trailer.planes[i]);
    return layout;
}

Trailer trailerFor(const Layout& layout)
{
    Trailer trailer{};
    trailer.magic = kTrailerMagic;
    trailer.version = kTrailerVersion;
    trailer.pixelFormat = layout.pixelFormat;
    trailer.width = static_cast<std::uint32_t>(layout.whole.width);
    trailer.height = static_cast<std::uint32_t>(layout.whole.height);
    trailer.bytesPerElement = static_cast<std::uint32_t>(layout.whole.bytesPerElement);
    trailer.bytesPerRow = static_cast<std::uint32_t>(layout.whole.bytesPerRow);
    trailer.allocSize = layout.allocSize;
    trailer.planeCount = static_cast<std::uint32_t>(layout.planeCount);
    for (std::uint64_t i = 0; i < layout.planeCount; ++i)
        trailer.planes[i] = trailerPlaneFor(layout.planes[i]);
    return trailer;
}

}  // namespace iosurface
