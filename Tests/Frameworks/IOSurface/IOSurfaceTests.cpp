// What a surface does on every platform.

#include <IOSurface/IOSurface.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

#include "Tests/Frameworks/Properties.h"

extern "C" size_t bytesFromC(CFDictionaryRef properties);

namespace {

using pavo::test::makeArray;
using pavo::test::makeDictionary;

constexpr OSType k2vuy = 0x32767579;
constexpr OSType k420v = 0x34323076;

cf::Ref<CFMutableDictionaryRef> packedProperties()
{
    return makeDictionary({{kIOSurfaceWidth, 64},
                           {kIOSurfaceHeight, 48},
                           {kIOSurfacePixelFormat, std::int64_t{k2vuy}},
                           {kIOSurfaceBytesPerElement, 2},
                           {kIOSurfaceBytesPerRow, 128},
                           {kIOSurfaceAllocSize, 128 * 48}});
}

cf::Ref<IOSurfaceRef> makePacked()
{
    return cf::adopt(IOSurfaceCreate(packedProperties().get()));
}

cf::Ref<IOSurfaceRef> makePlanar()
{
    const auto luma = makeDictionary({{kIOSurfacePlaneWidth, 64},
                                      {kIOSurfacePlaneHeight, 48},
                                      {kIOSurfacePlaneBytesPerElement, 1},
                                      {kIOSurfacePlaneBytesPerRow, 64},
                                      {kIOSurfacePlaneOffset, 0},
                                      {kIOSurfacePlaneSize, 64 * 48}});
    const auto chroma = makeDictionary({{kIOSurfacePlaneWidth, 32},
                                        {kIOSurfacePlaneHeight, 24},
                                        {kIOSurfacePlaneBytesPerElement, 2},
                                        {kIOSurfacePlaneBytesPerRow, 64},
                                        {kIOSurfacePlaneOffset, 64 * 48},
                                        {kIOSurfacePlaneSize, 64 * 24}});
    const auto properties =
        makeDictionary({{kIOSurfaceWidth, 64},
                        {kIOSurfaceHeight, 48},
                        {kIOSurfacePixelFormat, std::int64_t{k420v}},
                        {kIOSurfaceAllocSize, 64 * 72},
                        {kIOSurfacePlaneInfo, makeArray({luma.get(), chroma.get()}).get()}});
    return cf::adopt(IOSurfaceCreate(properties.get()));
}

// A second reference, by the way that another process would get it.
cf::Ref<IOSurfaceRef> lookUpAgain(IOSurfaceRef surface)
{
    const auto port = IOSurfaceCreateMachPort(surface);
    auto found = cf::adopt(IOSurfaceLookupFromMachPort(port));
    mach_port_deallocate(mach_task_self(), port);
    return found;
}

TEST(IOSurface, HasTheLayoutThatItWasMadeWith)
{
    const auto surface = makePacked();
    ASSERT_TRUE(surface);
    EXPECT_EQ(CFGetTypeID(surface.get()), IOSurfaceGetTypeID());
    EXPECT_EQ(IOSurfaceGetWidth(surface.get()), 64u);
    EXPECT_EQ(IOSurfaceGetHeight(surface.get()), 48u);
    EXPECT_EQ(IOSurfaceGetPixelFormat(surface.get()), k2vuy);
    EXPECT_EQ(IOSurfaceGetBytesPerElement(surface.get()), 2u);
    EXPECT_EQ(IOSurfaceGetBytesPerRow(surface.get()), 128u);
    EXPECT_GE(IOSurfaceGetAllocSize(surface.get()), 128u * 48);
    EXPECT_EQ(IOSurfaceGetPlaneCount(surface.get()), 0u);
}

TEST(IOSurface, HasThePlanesThatItWasMadeWith)
{
    const auto surface = makePlanar();
    ASSERT_TRUE(surface);
    ASSERT_EQ(IOSurfaceGetPlaneCount(surface.get()), 2u);
    EXPECT_EQ(IOSurfaceGetWidthOfPlane(surface.get(), 0), 64u);
    EXPECT_EQ(IOSurfaceGetHeightOfPlane(surface.get(), 0), 48u);
    EXPECT_EQ(IOSurfaceGetWidthOfPlane(surface.get(), 1), 32u);
    EXPECT_EQ(IOSurfaceGetHeightOfPlane(surface.get(), 1), 24u);
    EXPECT_EQ(IOSurfaceGetBytesPerElementOfPlane(surface.get(), 1), 2u);
    EXPECT_EQ(IOSurfaceGetBytesPerRowOfPlane(surface.get(), 1), 64u);
    const auto* base = static_cast<const std::byte*>(IOSurfaceGetBaseAddress(surface.get()));
    EXPECT_EQ(IOSurfaceGetBaseAddressOfPlane(surface.get(), 0), base);
    EXPECT_EQ(IOSurfaceGetBaseAddressOfPlane(surface.get(), 1), base + 64 * 48);
}

TEST(IOSurface, StartsWithZeros)
{
    const auto surface = makePacked();
    const auto* pixels = static_cast<const std::uint8_t*>(IOSurfaceGetBaseAddress(surface.get()));
    EXPECT_TRUE(std::all_of(pixels, pixels + 128 * 48, [](std::uint8_t byte) { return byte == 0; }));
}

TEST(IOSurface, CountsChangesByItsSeed)
{
    const auto surface = makePacked();
    const auto before = IOSurfaceGetSeed(surface.get());
    std::uint32_t seed = 0;
    EXPECT_EQ(IOSurfaceLock(surface.get(), 0, &seed), KERN_SUCCESS);
    EXPECT_EQ(seed, before);
    EXPECT_EQ(IOSurfaceUnlock(surface.get(), 0, &seed), KERN_SUCCESS);
    EXPECT_NE(IOSurfaceGetSeed(surface.get()), before);
    EXPECT_EQ(seed, IOSurfaceGetSeed(surface.get()));
}

TEST(IOSurface, KeepsItsSeedWhenItIsOnlyRead)
{
    const auto surface = makePacked();
    const auto before = IOSurfaceGetSeed(surface.get());
    EXPECT_EQ(IOSurfaceLock(surface.get(), kIOSurfaceLockReadOnly, nullptr), KERN_SUCCESS);
    EXPECT_EQ(IOSurfaceUnlock(surface.get(), kIOSurfaceLockReadOnly, nullptr), KERN_SUCCESS);
    EXPECT_EQ(IOSurfaceGetSeed(surface.get()), before);
}

TEST(IOSurface, IsTheSameObjectWhenItIsLookedUpWhereItLives)
{
    const auto surface = makePacked();
    EXPECT_EQ(lookUpAgain(surface.get()).get(), surface.get());
}

TEST(IOSurface, KeepsItsContentOnTheWayThroughAPort)
{
    auto surface = makePlanar();
    std::memset(IOSurfaceGetBaseAddressOfPlane(surface.get(), 1), 0x5A, 64 * 24);
    const auto port = IOSurfaceCreateMachPort(surface.get());
    surface = {};
    const auto found = cf::adopt(IOSurfaceLookupFromMachPort(port));
    mach_port_deallocate(mach_task_self(), port);
    ASSERT_TRUE(found);
    EXPECT_EQ(IOSurfaceGetPixelFormat(found.get()), k420v);
    ASSERT_EQ(IOSurfaceGetPlaneCount(found.get()), 2u);
    const auto* chroma = static_cast<const std::uint8_t*>(IOSurfaceGetBaseAddressOfPlane(found.get(), 1));
    EXPECT_EQ(chroma[0], 0x5A);
    EXPECT_EQ(chroma[64 * 24 - 1], 0x5A);
}

TEST(IOSurface, IsInUseWhileThereIsAUseCount)
{
    const auto surface = makePacked();
    EXPECT_FALSE(IOSurfaceIsInUse(surface.get()));
    IOSurfaceIncrementUseCount(surface.get());
    IOSurfaceIncrementUseCount(surface.get());
    EXPECT_EQ(IOSurfaceGetUseCount(surface.get()), 2);
    IOSurfaceDecrementUseCount(surface.get());
    EXPECT_TRUE(IOSurfaceIsInUse(surface.get()));
    IOSurfaceDecrementUseCount(surface.get());
    EXPECT_EQ(IOSurfaceGetUseCount(surface.get()), 0);
    EXPECT_FALSE(IOSurfaceIsInUse(surface.get()));
}

TEST(IOSurface, CannotBeLookedUpFromNoPort)
{
    EXPECT_EQ(IOSurfaceLookupFromMachPort(MACH_PORT_NULL), nullptr);
}

TEST(IOSurface, CanBeUsedFromC)
{
    EXPECT_EQ(bytesFromC(packedProperties().get()), 128u * 48);
}

TEST(IOSurface, IsOneObjectForThreadsThatLookItUpAndLetGoAtOnce)
{
    const auto surface = makePacked();
    const auto port = IOSurfaceCreateMachPort(surface.get());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([port, expected = surface.get()] {
            for (int round = 0; round < 500; ++round)
                EXPECT_EQ(cf::adopt(IOSurfaceLookupFromMachPort(port)).get(), expected);
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(CFGetRetainCount(surface.get()), 1);
    mach_port_deallocate(mach_task_self(), port);
}

TEST(IOSurface, ComesBackForThreadsThatLookItUpWhileOthersDropTheLastReference)
{
    auto surface = makePacked();
    const auto port = IOSurfaceCreateMachPort(surface.get());
    surface = {};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([port] {
            for (int round = 0; round < 200; ++round) {
                const auto found = cf::adopt(IOSurfaceLookupFromMachPort(port));
                ASSERT_TRUE(found);
                EXPECT_EQ(IOSurfaceGetWidth(found.get()), 64u);
            }
        });
    for (auto& thread : threads)
        thread.join();
    mach_port_deallocate(mach_task_self(), port);
}

}  // namespace
