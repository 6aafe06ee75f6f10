#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

// Wire format. What the memory of a surface says about itself, so that the descriptor of a memfd is all that
// travels. Programs of other versions and languages read and write it: fields never move, and a change of
// meaning is a new version.
//
// The file: pixels from offset 0, then up to the next multiple of kTrailerSize nothing, then the trailer as
// the last kTrailerSize bytes. It is sealed against shrinking and growing before anybody else sees it.
// Numbers are little endian. Whoever receives a surface copies the constant part once and believes the copy
// only.
namespace iosurface {

inline constexpr std::uint64_t kTrailerSize = 4096;
inline constexpr std::array<char, 8> kTrailerMagic = {'P', 'A', 'V', 'O', 'S', 'U', 'R', 'F'};
inline constexpr std::uint32_t kTrailerVersion = 1;

// What a sound surface keeps to. A surface beyond any of them is refused.
inline constexpr std::uint64_t kMaxDimension = 16384;     // pixels, each way
inline constexpr std::uint64_t kMaxBytesPerElement = 16;  // four channels of 32 bits
inline constexpr std::uint64_t kMaxBytesPerRow = kMaxDimension * kMaxBytesPerElement;
inline constexpr std::uint64_t kMaxPlaneCount = 4;
inline constexpr std::uint64_t kMaxAllocSize = std::uint64_t{1} << 30;

#pragma pack(push, 1)

struct TrailerPlane {
    std::uint32_t width;  // in pixels of the plane
    std::uint32_t height;
    std::uint32_t bytesPerElement;
    std::uint32_t bytesPerRow;
    std::uint64_t offset;  // from the start of the file
    std::uint64_t size;    // at least bytesPerRow × height
};

struct Trailer {
    std::array<char, 8> magic;
    std::uint32_t version;
    std::uint32_t pixelFormat;  // a four-character code, which this layer does not interpret
    std::uint32_t width;        // in pixels
    std::uint32_t height;
    std::uint32_t bytesPerElement;  // both 0 in a surface with planes
    std::uint32_t bytesPerRow;
    std::uint64_t allocSize;   // bytes of pixels from offset 0
    std::uint32_t planeCount;  // 0: the surface as a whole is one plane
    std::uint32_t reserved;    // 0
    std::array<TrailerPlane, kMaxPlaneCount> planes;
    std::array<std::uint8_t, 80> padding;  // 0

    // The part that all processes change, with atomic operations. Only a hint to others: who does not trust a
    // process must not trust what it counts.
    std::uint32_t seed;     // grows with each change of the content
    std::int32_t useCount;  // of all processes together; above 0: in use
};

#pragma pack(pop)

static_assert(std::endian::native == std::endian::little, "the trailer is mapped as it is");
static_assert(sizeof(TrailerPlane) == 32 && offsetof(TrailerPlane, offset) == 16);
static_assert(offsetof(Trailer, version) == 8 && offsetof(Trailer, pixelFormat) == 12);
static_assert(offsetof(Trailer, width) == 16 && offsetof(Trailer, height) == 20);
static_assert(offsetof(Trailer, bytesPerElement) == 24 && offsetof(Trailer, bytesPerRow) == 28);
static_assert(offsetof(Trailer, allocSize) == 32 && offsetof(Trailer, planeCount) == 40);
static_assert(offsetof(Trailer, planes) == 48);
static_assert(offsetof(Trailer, seed) == 256 && offsetof(Trailer, useCount) == 260);
static_assert(sizeof(Trailer) == 264 && sizeof(Trailer) <= kTrailerSize);

}  // namespace iosurface
