// Descriptors that anybody may have sent. Each is refused with one line in the log that says why, and nothing
// of it stays open or mapped.

#include <IOSurface/IOSurface.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <limits>
#include <string>
#include <utility>

#include "Frameworks/IOSurface/src/IOSurfaceTrailer.h"
#include "Platform/Support/Ref.h"
#include "Platform/Support/UniqueFd.h"
#include "Tests/Frameworks/IOSurface/FailingCall.h"
#include "Tests/Frameworks/IOSurface/RecordedErrors.h"
#include "Tests/Support/Descriptors.h"

namespace {

using iosurface::Trailer;
using pavo::UniqueFd;
using pavo::test::FailingCall;
using pavo::test::openDescriptorCount;
using pavo::test::takeErrors;

constexpr std::uint32_t kHuge = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t kHuger = std::numeric_limits<std::uint64_t>::max();
constexpr off_t kPixelBytes = 8192;

// A sound surface of 64 × 32 pixels of 4 bytes.
Trailer soundTrailer()
{
    Trailer trailer{};
    trailer.magic = iosurface::kTrailerMagic;
    trailer.version = iosurface::kTrailerVersion;
    trailer.pixelFormat = 0x42475241;
    trailer.width = 64;
    trailer.height = 32;
    trailer.bytesPerElement = 4;
    trailer.bytesPerRow = 256;
    trailer.allocSize = kPixelBytes;
    return trailer;
}

// The same pixels as two planes of bytes.
Trailer soundPlanarTrailer()
{
    auto trailer = soundTrailer();
    trailer.bytesPerElement = 0;
    trailer.bytesPerRow = 0;
    trailer.planeCount = 2;
    trailer.planes[0] = {64, 32, 1, 128, 0, 4096};
    trailer.planes[1] = {64, 32, 1, 128, 4096, 4096};
    return trailer;
}

struct FileOptions {
    off_t size = kPixelBytes + 4096;
    int seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;
    unsigned flags = MFD_ALLOW_SEALING;
};

UniqueFd makeFile(const Trailer& trailer, const FileOptions& options = {})
{
    UniqueFd fd(::memfd_create("hostile", MFD_CLOEXEC | options.flags));
    EXPECT_EQ(::ftruncate(fd.get(), options.size), 0);
    const auto offset = options.size - 4096;
    if (offset >= 0) {
        EXPECT_EQ(::pwrite(fd.get(), &trailer, sizeof trailer, offset), ssize_t{sizeof trailer});
    }
    if (options.seals) {
        EXPECT_EQ(::fcntl(fd.get(), F_ADD_SEALS, options.seals), 0);
    }
    return fd;
}

std::size_t mappedMemoryFileCount()
{
    std::ifstream maps("/proc/self/maps");
    std::size_t count = 0;
    for (std::string line; std::getline(maps, line);)
        if (line.find("/memfd:") != std::string::npos) ++count;
    return count;
}

void expectRefused(int fd, const std::string& reason)
{
    takeErrors();
    const auto descriptors = openDescriptorCount();
    const auto mappings = mappedMemoryFileCount();
    EXPECT_EQ(IOSurfaceLookupFromMachPort(static_cast<mach_port_t>(fd)), nullptr);
    EXPECT_EQ(takeErrors(), std::vector<std::string>{"Refused a surface: " + reason});
    EXPECT_EQ(openDescriptorCount(), descriptors);
    EXPECT_EQ(mappedMemoryFileCount(), mappings);
}

void expectRefused(const Trailer& trailer, const std::string& reason)
{
    expectRefused(makeFile(trailer).get(), reason);
}

TEST(IOSurfaceHostileInputLinux, TakesTheSoundSurfacesThatTheOtherTestsSpoil)
{
    for (const auto& trailer : {soundTrailer(), soundPlanarTrailer()}) {
        const auto fd = makeFile(trailer);
        const auto mappings = mappedMemoryFileCount();
        const auto surface = cf::adopt(IOSurfaceLookupFromMachPort(static_cast<mach_port_t>(fd.get())));
        ASSERT_TRUE(surface);
        EXPECT_EQ(mappedMemoryFileCount(), mappings + 1);
        EXPECT_EQ(IOSurfaceGetWidth(surface.get()), 64u);
        EXPECT_EQ(IOSurfaceGetPlaneCount(surface.get()), trailer.planeCount);
    }
    EXPECT_EQ(mappedMemoryFileCount(), 0u);
}

TEST(IOSurfaceHostileInputLinux, RefusesWhatIsNoDescriptor)
{
    expectRefused(0, "the descriptor is no memfd");
    expectRefused(-1, "the descriptor is no memfd");
    expectRefused(1 << 20, "the descriptor is no memfd");
}

TEST(IOSurfaceHostileInputLinux, RefusesDescriptorsOfOtherThings)
{
    const UniqueFd device(::open("/dev/zero", O_RDWR | O_CLOEXEC));
    expectRefused(device.get(), "the descriptor is no memfd");
    const UniqueFd folder(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    expectRefused(folder.get(), "the descriptor is no memfd");
    const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    expectRefused(socket.get(), "the descriptor is no memfd");
    const pavo::test::TemporaryFolder temporary;
    const UniqueFd file(::open((temporary.path() + "/file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    EXPECT_EQ(::ftruncate(file.get(), kPixelBytes + 4096), 0);
    takeErrors();
    EXPECT_EQ(IOSurfaceLookupFromMachPort(static_cast<mach_port_t>(file.get())), nullptr);
    EXPECT_EQ(takeErrors().size(), 1u);
}

TEST(IOSurfaceHostileInputLinux, RefusesFilesThatCouldShrinkOrGrow)
{
    const std::string reason = "the file is not sealed against shrinking and growing";
    expectRefused(makeFile(soundTrailer(), {.seals = 0}).get(), reason);
    expectRefused(makeFile(soundTrailer(), {.seals = F_SEAL_GROW}).get(), reason);
    expectRefused(makeFile(soundTrailer(), {.seals = F_SEAL_SHRINK}).get(), reason);
    expectRefused(makeFile(soundTrailer(), {.seals = 0, .flags = 0}).get(), reason);
}

TEST(IOSurfaceHostileInputLinux, RefusesFilesThatCannotBeWritten)
{
    FileOptions options;
    options.seals |= F_SEAL_WRITE;
    expectRefused(makeFile(soundTrailer(), options).get(), "the memory cannot be mapped");

    const auto writable = makeFile(soundTrailer());
    const UniqueFd readOnly(
        ::open(("/proc/self/fd/" + std::to_string(writable.get())).c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_TRUE(readOnly.isValid());
    expectRefused(readOnly.get(), "the memory cannot be mapped");
}

TEST(IOSurfaceHostileInputLinux, RefusesFilesOfImpossibleSize)
{
    const std::string tooSmall = "the file is too small for a trailer";
    expectRefused(makeFile(soundTrailer(), {.size = 0}).get(), tooSmall);
    expectRefused(makeFile(soundTrailer(), {.size = 100}).get(), tooSmall);
    expectRefused(makeFile(soundTrailer(), {.size = 4096}).get(), tooSmall);
    expectRefused(makeFile(soundTrailer(), {.size = kPixelBytes + 4096 + 8}).get(), tooSmall);
    expectRefused(makeFile(soundTrailer(), {.size = (off_t{1} << 30) + 2 * 4096}).get(),
                  "the file is too large");
    expectRefused(makeFile(soundTrailer(), {.size = off_t{1} << 50}).get(), "the file is too large");
}

TEST(IOSurfaceHostileInputLinux, RefusesASoundSurfaceThatTheSystemDoesNotHandOver)
{
    const auto file = makeFile(soundTrailer());
    for (const auto& [function, reason] : {std::pair{"pread", "the trailer cannot be read"},
                                           std::pair{"fcntl", "there is no descriptor left"}}) {
        const FailingCall failure(function);
        expectRefused(file.get(), reason);
    }
}

TEST(IOSurfaceHostileInputLinux, RefusesATruncatedSurface)
{
    expectRefused(makeFile(soundTrailer(), {.size = kPixelBytes}).get(),
                  "the file is smaller than the surface");
}

TEST(IOSurfaceHostileInputLinux, RefusesATrailerOfSomebodyElse)
{
    auto trailer = soundTrailer();
    trailer.magic[7] = 'G';
    expectRefused(trailer, "there is no trailer");
    expectRefused(Trailer{}, "there is no trailer");
    for (const std::uint32_t version : {0u, 2u, kHuge}) {
        trailer = soundTrailer();
        trailer.version = version;
        expectRefused(trailer, "the trailer is of another version");
    }
}

TEST(IOSurfaceHostileInputLinux, RefusesASizeOutOfRange)
{
    for (const std::uint64_t size : {std::uint64_t{0}, (std::uint64_t{1} << 30) + 1, kHuger}) {
        auto trailer = soundTrailer();
        trailer.allocSize = size;
        expectRefused(trailer, "the size is out of range");
    }
    auto trailer = soundTrailer();
    trailer.allocSize = kPixelBytes + 1;
    expectRefused(trailer, "the file is smaller than the surface");
    trailer.allocSize = kPixelBytes - 1;
    expectRefused(trailer, "a plane lies outside the surface");
}

TEST(IOSurfaceHostileInputLinux, RefusesDimensionsOutOfRange)
{
    for (const std::uint32_t value : {0u, 16385u, kHuge}) {
        auto trailer = soundTrailer();
        trailer.width = value;
        expectRefused(trailer, "a width is out of range");
        trailer = soundTrailer();
        trailer.height = value;
        expectRefused(trailer, "a height is out of range");
        trailer = soundPlanarTrailer();
        trailer.width = value;
        expectRefused(trailer, "the width is out of range");
        trailer = soundPlanarTrailer();
        trailer.height = value;
        expectRefused(trailer, "the height is out of range");
    }
}

TEST(IOSurfaceHostileInputLinux, RefusesAStrideThatDoesNotFitTheWidth)
{
    for (const std::uint32_t stride : {0u, 1u, 255u}) {
        auto trailer = soundTrailer();
        trailer.bytesPerRow = stride;
        expectRefused(trailer, "a row does not hold its width");
    }
    for (const std::uint32_t stride : {16384u * 16 + 1, kHuge}) {
        auto trailer = soundTrailer();
        trailer.bytesPerRow = stride;
        expectRefused(trailer, "the bytes per row are out of range");
    }
    auto trailer = soundTrailer();
    trailer.bytesPerRow = 257;
    expectRefused(trailer, "a plane lies outside the surface");
}

TEST(IOSurfaceHostileInputLinux, RefusesElementsOutOfRange)
{
    for (const std::uint32_t bytes : {0u, 17u, kHuge}) {
        auto trailer = soundTrailer();
        trailer.bytesPerElement = bytes;
        expectRefused(trailer, "the bytes per element are out of range");
    }
}

TEST(IOSurfaceHostileInputLinux, RefusesTooManyPlanes)
{
    for (const std::uint32_t count : {5u, kHuge}) {
        auto trailer = soundPlanarTrailer();
        trailer.planeCount = count;
        expectRefused(trailer, "there are too many planes");
    }
}

TEST(IOSurfaceHostileInputLinux, RefusesAPlaneOutsideTheFile)
{
    const std::vector<std::function<void(iosurface::TrailerPlane&)>> spoilers = {
        [](auto& plane) { plane.offset = 4097; },
        [](auto& plane) { plane.offset = kPixelBytes; },
        [](auto& plane) { plane.offset = kPixelBytes + 4096; },
        [](auto& plane) { plane.offset = kHuger; },
        [](auto& plane) { plane.offset = kHuger - 4095; },
        [](auto& plane) { plane.size = 4097; },
        [](auto& plane) { plane.size = kHuger; },
        [](auto& plane) { plane.size = kHuger - 4095; },
    };
    for (const auto& spoil : spoilers) {
        auto trailer = soundPlanarTrailer();
        spoil(trailer.planes[1]);
        expectRefused(trailer, "a plane lies outside the surface");
    }
}

TEST(IOSurfaceHostileInputLinux, RefusesAPlaneThatDoesNotHoldItsRows)
{
    const auto expectPlaneRefused = [](const std::function<void(iosurface::TrailerPlane&)>& spoil,
                                       const std::string& reason) {
        auto trailer = soundPlanarTrailer();
        spoil(trailer.planes[0]);
        expectRefused(trailer, reason);
    };
    expectPlaneRefused([](auto& plane) { plane.size = 4095; }, "the rows do not fit the size");
    expectPlaneRefused([](auto& plane) { plane.size = 0; }, "the rows do not fit the size");
    expectPlaneRefused([](auto& plane) { plane.height = 33; }, "the rows do not fit the size");
    expectPlaneRefused([](auto& plane) { plane.width = 129; }, "a row does not hold its width");
    expectPlaneRefused([](auto& plane) { plane.width = 0; }, "a width is out of range");
    expectPlaneRefused([](auto& plane) { plane.width = kHuge; }, "a width is out of range");
    expectPlaneRefused([](auto& plane) { plane.height = kHuge; }, "a height is out of range");
    expectPlaneRefused([](auto& plane) { plane.bytesPerElement = kHuge; },
                       "the bytes per element are out of range");
    expectPlaneRefused([](auto& plane) { plane.bytesPerRow = kHuge; }, "the bytes per row are out of range");
}

TEST(IOSurfaceHostileInputLinux, BelievesTheTrailerOnlyOnce)
{
    const auto fd = makeFile(soundTrailer());
    const auto surface = cf::adopt(IOSurfaceLookupFromMachPort(static_cast<mach_port_t>(fd.get())));
    ASSERT_TRUE(surface);
    auto changed = soundTrailer();
    changed.height = kHuge;
    changed.allocSize = kHuger;
    ASSERT_EQ(::pwrite(fd.get(), &changed, sizeof changed, kPixelBytes), ssize_t{sizeof changed});
    EXPECT_EQ(IOSurfaceGetHeight(surface.get()), 32u);
    const auto again = cf::adopt(IOSurfaceLookupFromMachPort(static_cast<mach_port_t>(fd.get())));
    EXPECT_EQ(again.get(), surface.get());
    EXPECT_EQ(IOSurfaceGetAllocSize(again.get()), std::size_t{kPixelBytes});
}

TEST(IOSurfaceHostileInputLinux, CountsOnWhateverThePeerCounts)
{
    auto trailer = soundTrailer();
    trailer.useCount = std::numeric_limits<std::int32_t>::min();
    trailer.seed = kHuge;
    const auto fd = makeFile(trailer);
    const auto surface = cf::adopt(IOSurfaceLookupFromMachPort(static_cast<mach_port_t>(fd.get())));
    ASSERT_TRUE(surface);
    EXPECT_FALSE(IOSurfaceIsInUse(surface.get()));
    IOSurfaceIncrementUseCount(surface.get());
    // The peer cannot deny what this process says itself.
    EXPECT_TRUE(IOSurfaceIsInUse(surface.get()));
    IOSurfaceDecrementUseCount(surface.get());
    EXPECT_EQ(IOSurfaceLock(surface.get(), 0, nullptr), KERN_SUCCESS);
    EXPECT_EQ(IOSurfaceUnlock(surface.get(), 0, nullptr), KERN_SUCCESS);
    EXPECT_EQ(IOSurfaceGetSeed(surface.get()), 0u);
}

}  // namespace
