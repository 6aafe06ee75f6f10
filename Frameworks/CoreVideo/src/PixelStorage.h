#pragma once

#include "PixelFormat.h"
#include "Platform/Support/Ref.h"

#include <IOSurface/IOSurface.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <optional>

namespace corevideo {

// What a new buffer is to be. The format is one that is supported, the size within its limits.
struct StorageRequest {
    const PixelFormat* format;
    std::size_t width;
    std::size_t height;
    std::size_t bytesPerRowAlignment = 1;
    bool isSurfaceBacked = false;
};

// One plane, or all of a picture that has none.
struct StoragePart {
    std::byte* address = nullptr;
    std::size_t width = 0;
    std::size_t height = 0;
    std::size_t bytesPerRow = 0;
};

// Where the pixels of a buffer are.
//
// Ownership: owns plain memory, or a reference to the surface.
struct PixelStorage {
    // None where memory or descriptors are out.
    static std::optional<PixelStorage> create(const StorageRequest& request);
    // Takes the surface as it is, after checking that its rows and planes are those of its format.
    static CVReturn wrap(IOSurfaceRef wrapped, std::optional<PixelStorage>& storage);

    bool isPlanar() const { return format->planeCount != 0; }
    // Null where the buffer has no such plane.
    const StoragePart* plane(std::size_t index) const;
    std::size_t dataSize() const;

    struct Free {
        void operator()(void* pixels) const { std::free(pixels); }
    };

    const PixelFormat* format = nullptr;
    std::size_t width = 0;
    std::size_t height = 0;
    std::array<StoragePart, kMaxPlanes> parts;
    cf::Ref<IOSurfaceRef> surface;
    std::unique_ptr<void, Free> memory;
};

}  // namespace corevideo
