// What a surface is on Linux: a sealed memfd that other processes map too.

#include <IOSurface/IOSurface.h>
#include <IOSurface/IOSurfacePrivate.h>
#include <os/log_printf.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <utility>

#include "Frameworks/IOSurface/src/IOSurfaceTrailer.h"
#include "Platform/Support/UniqueFd.h"
#include "Tests/Frameworks/IOSurface/FailingCall.h"
#include "Tests/Frameworks/IOSurface/RecordedErrors.h"
#include "Tests/Frameworks/Properties.h"
#include "Tests/Support/Descriptors.h"

namespace {

std::mutex errorsMutex;
std::vector<std::string> errors;

}  // namespace

extern "C" __attribute__((format(printf, 3, 4))) void __wrap_os_log_printf(os_log_t, os_log_type_t type,
                                                                           const char* format, ...)
{
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const std::lock_guard lock(errorsMutex);
    if (type == OS_LOG_TYPE_ERROR) errors.emplace_back(text);
}

std::vector<std::string> pavo::test::takeErrors()
{
    const std::lock_guard lock(errorsMutex);
    return std::exchange(errors, {});
}

namespace {

using pavo::test::FailingCall;
using pavo::test::makeArray;
using pavo::test::makeDictionary;
using pavo::test::openDescriptorCount;
using pavo::test::Property;
using pavo::test::setProperty;
using pavo::test::takeErrors;

cf::Ref<CFMutableDictionaryRef> properties(int width = 64, int height = 48)
{
    return makeDictionary(
        {{kIOSurfaceWidth, width}, {kIOSurfaceHeight, height}, {kIOSurfaceBytesPerElement, 4}});
}

cf::Ref<IOSurfaceRef> makeSurface()
{
    return cf::adopt(IOSurfaceCreate(properties().get()));
}

// Expects that there is no such surface, and one line in the log that says why.
void expectNoSurface(const cf::Ref<CFMutableDictionaryRef>& asked, const std::string& reason)
{
    takeErrors();
    const auto descriptors = openDescriptorCount();
    EXPECT_EQ(IOSurfaceCreate(asked.get()), nullptr);
    EXPECT_EQ(takeErrors(), std::vector<std::string>{"Cannot create a surface: " + reason});
    EXPECT_EQ(openDescriptorCount(), descriptors);
}

// Runs `work` in another process that has the same surfaces, and waits for its end.
template <typename Work>
void inAnotherProcess(Work work)
{
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        work();
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(IOSurfaceLinux, FillsInWhatThePropertiesLeaveOut)
{
    const auto surface = makeSurface();
    EXPECT_EQ(IOSurfaceGetBytesPerRow(surface.get()), 256u);
    EXPECT_EQ(IOSurfaceGetAllocSize(surface.get()), 256u * 48);

    const auto bytes =
        cf::adopt(IOSurfaceCreate(makeDictionary({{kIOSurfaceWidth, 10}, {kIOSurfaceHeight, 2}}).get()));
    EXPECT_EQ(IOSurfaceGetBytesPerElement(bytes.get()), 1u);
    EXPECT_EQ(IOSurfaceGetBytesPerRow(bytes.get()), 10u);
}

TEST(IOSurfaceLinux, PutsPlanesWithoutOffsetsOneAfterTheOther)
{
    const auto plane = makeDictionary({{kIOSurfacePlaneWidth, 16}, {kIOSurfacePlaneHeight, 8}});
    const auto asked = properties(16, 8);
    setProperty(asked, Property(kIOSurfacePlaneInfo, makeArray({plane.get(), plane.get()}).get()));
    const auto surface = cf::adopt(IOSurfaceCreate(asked.get()));
    const auto* base = static_cast<const std::byte*>(IOSurfaceGetBaseAddress(surface.get()));
    EXPECT_EQ(IOSurfaceGetBaseAddressOfPlane(surface.get(), 1), base + 16 * 8);
    EXPECT_EQ(IOSurfaceGetAllocSize(surface.get()), 2u * 16 * 8);
}

TEST(IOSurfaceLinux, HasNothingWhereThereIsNoPlane)
{
    const auto surface = makeSurface();
    EXPECT_EQ(IOSurfaceGetWidthOfPlane(surface.get(), 0), 0u);
    EXPECT_EQ(IOSurfaceGetHeightOfPlane(surface.get(), 0), 0u);
    EXPECT_EQ(IOSurfaceGetBytesPerElementOfPlane(surface.get(), 0), 0u);
    EXPECT_EQ(IOSurfaceGetBytesPerRowOfPlane(surface.get(), 0), 0u);
    EXPECT_EQ(IOSurfaceGetBaseAddressOfPlane(surface.get(), 0), nullptr);
}

TEST(IOSurfaceLinux, TakesTheLargestDimensions)
{
    const auto wide = cf::adopt(IOSurfaceCreate(properties(16384, 1).get()));
    EXPECT_TRUE(wide);
    const auto tall = cf::adopt(IOSurfaceCreate(properties(1, 16384).get()));
    EXPECT_TRUE(tall);
}

TEST(IOSurfaceLinux, RefusesToBeMadeBeyondTheLimits)
{
    expectNoSurface({}, "there are no properties");
    expectNoSurface(properties(0, 48), "the size is out of range");
    expectNoSurface(properties(16385, 1), "a width is out of range");
    expectNoSurface(properties(1, 16385), "a height is out of range");
    expectNoSurface(properties(-1, 48), "the size is out of range");

    auto asked = properties();
    setProperty(asked, {kIOSurfaceBytesPerElement, 17});
    expectNoSurface(asked, "the bytes per element are out of range");
    asked = properties();
    setProperty(asked, {kIOSurfaceBytesPerRow, 16384 * 16 + 1});
    expectNoSurface(asked, "the bytes per row are out of range");
    asked = properties();
    setProperty(asked, {kIOSurfaceBytesPerRow, 255});
    expectNoSurface(asked, "a row does not hold its width");
    asked = properties();
    setProperty(asked, {kIOSurfaceAllocSize, 256 * 48 - 1});
    expectNoSurface(asked, "a plane lies outside the surface");
    asked = properties();
    setProperty(asked, {kIOSurfaceAllocSize, (std::int64_t{1} << 30) + 1});
    expectNoSurface(asked, "the size is out of range");
    asked = properties();
    setProperty(asked, Property(kIOSurfaceWidth, CFSTR("64")));
    expectNoSurface(asked, "a property is not an integer");
}

TEST(IOSurfaceLinux, RefusesPlanesThatCannotBeUnderstood)
{
    const auto plane = makeDictionary({{kIOSurfacePlaneWidth, 16}, {kIOSurfacePlaneHeight, 8}});
    auto asked = properties();
    setProperty(asked, Property(kIOSurfacePlaneInfo, CFSTR("planes")));
    expectNoSurface(asked, "the planes cannot be understood");
    setProperty(asked, Property(kIOSurfacePlaneInfo, makeArray({CFSTR("plane")}).get()));
    expectNoSurface(asked, "the planes cannot be understood");
    setProperty(asked,
                Property(kIOSurfacePlaneInfo,
                         makeArray({plane.get(), plane.get(), plane.get(), plane.get(), plane.get()}).get()));
    expectNoSurface(asked, "the planes cannot be understood");
    setProperty(plane, Property(kIOSurfacePlaneHeight, CFSTR("8")));
    setProperty(asked, Property(kIOSurfacePlaneInfo, makeArray({plane.get()}).get()));
    expectNoSurface(asked, "the planes cannot be understood");
}

TEST(IOSurfaceLinux, IsNotMadeWhereTheSystemHasNoRoom)
{
    for (const auto& [function, reason] : {std::pair{"memfd_create", "there is no descriptor left"},
                                           std::pair{"ftruncate", "the memory cannot be made"}}) {
        const FailingCall failure(function);
        expectNoSurface(properties(), reason);
    }
}

TEST(IOSurfaceLinux, IsASealedMemoryFileWithATrailerAtItsEnd)
{
    const auto surface = makeSurface();
    const pavo::UniqueFd fd(static_cast<int>(IOSurfaceCreateMachPort(surface.get())));
    constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;
    EXPECT_EQ(::fcntl(fd.get(), F_GET_SEALS) & kSeals, kSeals);
    EXPECT_EQ(::fcntl(fd.get(), F_GETFD), FD_CLOEXEC);
    const auto size = ::lseek(fd.get(), 0, SEEK_END);
    EXPECT_EQ(size, 256 * 48 + 4096);

    iosurface::Trailer trailer{};
    ASSERT_EQ(::pread(fd.get(), &trailer, sizeof trailer, size - 4096), ssize_t{sizeof trailer});
    EXPECT_EQ(std::memcmp(trailer.magic.data(), "PAVOSURF", 8), 0);
    EXPECT_EQ(trailer.version, 1u);
    EXPECT_EQ(trailer.width, 64u);
    EXPECT_EQ(trailer.height, 48u);
    EXPECT_EQ(trailer.bytesPerElement, 4u);
    EXPECT_EQ(trailer.bytesPerRow, 256u);
    EXPECT_EQ(trailer.allocSize, 256u * 48);
    EXPECT_EQ(trailer.planeCount, 0u);
}

TEST(IOSurfaceLinux, LetsGoOfItsDescriptorWhenTheLastReferenceGoes)
{
    const auto descriptors = openDescriptorCount();
    {
        const auto surface = makeSurface();
        const auto second = cf::retain(surface.get());
        EXPECT_EQ(openDescriptorCount(), descriptors + 1);
    }
    EXPECT_EQ(openDescriptorCount(), descriptors);
}

TEST(IOSurfaceLinux, OnlyBorrowsThePortThatItIsLookedUpFrom)
{
    auto surface = makeSurface();
    const pavo::UniqueFd fd(static_cast<int>(IOSurfaceCreateMachPort(surface.get())));
    surface = {};
    const auto descriptors = openDescriptorCount();
    {
        const auto found = cf::adopt(IOSurfaceLookupFromMachPort(static_cast<mach_port_t>(fd.get())));
        EXPECT_TRUE(found);
    }
    EXPECT_EQ(openDescriptorCount(), descriptors);
    EXPECT_GE(::fcntl(fd.get(), F_GETFD), 0);
}

TEST(IOSurfaceLinux, IsLocalOnlyWhereItWasMade)
{
    auto surface = makeSurface();
    EXPECT_TRUE(IOSurfaceIsLocal(surface.get()));
    const pavo::UniqueFd fd(static_cast<int>(IOSurfaceCreateMachPort(surface.get())));
    surface = {};
    const auto found = cf::adopt(IOSurfaceLookupFromMachPort(static_cast<mach_port_t>(fd.get())));
    EXPECT_FALSE(IOSurfaceIsLocal(found.get()));
}

TEST(IOSurfaceLinux, ShowsOneProcessWhatAnotherWrites)
{
    const auto surface = makeSurface();
    inAnotherProcess([&surface] {
        IOSurfaceLock(surface.get(), 0, nullptr);
        std::memset(IOSurfaceGetBaseAddress(surface.get()), 0x33, 256 * 48);
        IOSurfaceUnlock(surface.get(), 0, nullptr);
    });
    EXPECT_EQ(static_cast<const std::uint8_t*>(IOSurfaceGetBaseAddress(surface.get()))[100], 0x33);
    EXPECT_EQ(IOSurfaceGetSeed(surface.get()), 1u);
}

TEST(IOSurfaceLinux, IsInUseWhileAnotherProcessUsesIt)
{
    const auto surface = makeSurface();
    inAnotherProcess([&surface] { IOSurfaceIncrementUseCount(surface.get()); });
    EXPECT_TRUE(IOSurfaceIsInUse(surface.get()));
    EXPECT_EQ(IOSurfaceGetUseCount(surface.get()), 0);
}

TEST(IOSurfaceLinux, TakesBackItsUseCountWhenItsLastReferenceGoes)
{
    const auto surface = makeSurface();
    inAnotherProcess([&surface] {
        IOSurfaceIncrementUseCount(surface.get());
        CFRelease(surface.get());
    });
    EXPECT_FALSE(IOSurfaceIsInUse(surface.get()));
}

TEST(IOSurfaceLinux, RefusesUnknownLockOptionsAndUnlocksWithoutALock)
{
    const auto surface = makeSurface();
    EXPECT_EQ(IOSurfaceLock(surface.get(), 4, nullptr), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(IOSurfaceUnlock(surface.get(), 4, nullptr), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(IOSurfaceUnlock(surface.get(), 0, nullptr), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(IOSurfaceLock(surface.get(), kIOSurfaceLockReadOnly | kIOSurfaceLockAvoidSync, nullptr),
              KERN_SUCCESS);
    EXPECT_EQ(IOSurfaceUnlock(surface.get(), 0, nullptr), KERN_INVALID_ARGUMENT);
    EXPECT_EQ(IOSurfaceUnlock(surface.get(), kIOSurfaceLockReadOnly, nullptr), KERN_SUCCESS);
}

TEST(IOSurfaceLinuxDeathTest, EndsTheProcessThatTakesBackAUseThatItNeverAdded)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto surface = makeSurface();
    EXPECT_DEATH(IOSurfaceDecrementUseCount(surface.get()),
                 "Fatal error: IOSurfaceDecrementUseCount\\(\\) called without an increment");
}

}  // namespace
