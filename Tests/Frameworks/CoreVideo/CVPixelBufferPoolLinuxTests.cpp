// What is decided here and elsewhere left open: statuses, age, and surfaces that other processes keep.

#include <CoreVideo/CoreVideo.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <thread>
#include <vector>

#include "Tests/Frameworks/CoreVideo/Buffers.h"
#include "Tests/Frameworks/CoreVideo/SurfaceFailure.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Wait.h"

namespace {

std::atomic<bool> failsToMakeSurfaces = false;

}  // namespace

extern "C" IOSurfaceRef __real_IOSurfaceCreate(CFDictionaryRef properties);
extern "C" IOSurfaceRef __wrap_IOSurfaceCreate(CFDictionaryRef properties)
{
    return failsToMakeSurfaces ? nullptr : __real_IOSurfaceCreate(properties);
}

pavo::test::SurfaceFailure::SurfaceFailure()
{
    failsToMakeSurfaces = true;
}

pavo::test::SurfaceFailure::~SurfaceFailure()
{
    failsToMakeSurfaces = false;
}

namespace {

using pavo::test::makeDictionary;
using pavo::test::openDescriptorCount;
using pavo::test::Property;
using pavo::test::setProperty;
using pavo::test::SurfaceFailure;
using pavo::test::waitFor;

constexpr double kShortestAge = 1e-9;  // seconds: passed by the next call

// Buffers in surfaces, so that the descriptors show how many there are.
cf::Ref<CFMutableDictionaryRef> bufferAttributes()
{
    return makeDictionary({{kCVPixelBufferPixelFormatTypeKey, kCVPixelFormatType_422YpCbCr8},
                           {kCVPixelBufferWidthKey, 64},
                           {kCVPixelBufferHeightKey, 48},
                           {kCVPixelBufferIOSurfacePropertiesKey, makeDictionary({}).get()}});
}

CVReturn statusOf(CFDictionaryRef poolAttributes, CFDictionaryRef attributes)
{
    cf::Ref<CVPixelBufferPoolRef> pool;
    const auto status =
        CVPixelBufferPoolCreate(kCFAllocatorDefault, poolAttributes, attributes, pool.receive());
    EXPECT_EQ(bool(pool), status == kCVReturnSuccess);
    return status;
}

CVReturn statusOfPoolAttribute(const Property& attribute)
{
    return statusOf(makeDictionary({attribute}).get(), bufferAttributes().get());
}

CVReturn statusOfBufferAttribute(const Property& attribute)
{
    const auto attributes = bufferAttributes();
    setProperty(attributes, attribute);
    return statusOf(nullptr, attributes.get());
}

CVReturn statusWithoutBufferAttribute(CFStringRef key)
{
    const auto attributes = bufferAttributes();
    CFDictionaryRemoveValue(attributes.get(), key);
    return statusOf(nullptr, attributes.get());
}

cf::Ref<CVPixelBufferPoolRef> makePool(double maximumAge, int minimumCount = 0)
{
    const auto poolAttributes = makeDictionary({{kCVPixelBufferPoolMaximumBufferAgeKey, maximumAge},
                                                {kCVPixelBufferPoolMinimumBufferCountKey, minimumCount}});
    cf::Ref<CVPixelBufferPoolRef> pool;
    CVPixelBufferPoolCreate(kCFAllocatorDefault, poolAttributes.get(), bufferAttributes().get(),
                            pool.receive());
    return pool;
}

CVReturn take(const cf::Ref<CVPixelBufferPoolRef>& pool, const Property& threshold,
              cf::Ref<CVPixelBufferRef>& buffer)
{
    return CVPixelBufferPoolCreatePixelBufferWithAuxAttributes(
        kCFAllocatorDefault, pool.get(), makeDictionary({threshold}).get(), buffer.receive());
}

cf::Ref<CVPixelBufferRef> take(const cf::Ref<CVPixelBufferPoolRef>& pool)
{
    cf::Ref<CVPixelBufferRef> buffer;
    CVPixelBufferPoolCreatePixelBuffer(kCFAllocatorDefault, pool.get(), buffer.receive());
    return buffer;
}

// Takes `count` buffers and releases them all.
void fill(const cf::Ref<CVPixelBufferPoolRef>& pool, int count)
{
    std::vector<cf::Ref<CVPixelBufferRef>> buffers;
    for (int i = 0; i < count; ++i)
        buffers.push_back(take(pool));
}

// Another process that uses the surface until it is told to stop, or killed.
class SurfaceUser {
public:
    explicit SurfaceUser(IOSurfaceRef surface)
    {
        int ready[2];
        EXPECT_EQ(::pipe(ready), 0);
        EXPECT_EQ(::pipe(stop_), 0);
        child_ = ::fork();
        if (child_ == 0) {
            ::close(stop_[1]);
            IOSurfaceIncrementUseCount(surface);
            char byte = 0;
            (void)!::write(ready[1], &byte, 1);
            const bool isTold = ::read(stop_[0], &byte, 1) == 1;
            if (isTold) IOSurfaceDecrementUseCount(surface);
            ::_exit(0);
        }
        char byte = 0;
        EXPECT_EQ(::read(ready[0], &byte, 1), 1);
        ::close(ready[0]);
        ::close(ready[1]);
    }
    ~SurfaceUser() { kill(); }

    void stop()
    {
        const char byte = 0;
        EXPECT_EQ(::write(stop_[1], &byte, 1), 1);
        end();
    }
    // It ends without giving its use back.
    void kill()
    {
        if (child_ > 0) ::kill(child_, SIGKILL);
        end();
    }

private:
    void end()
    {
        if (child_ <= 0) return;
        ::waitpid(child_, nullptr, 0);
        ::close(stop_[0]);
        ::close(stop_[1]);
        child_ = -1;
    }

    pid_t child_ = -1;
    int stop_[2] = {-1, -1};
};

TEST(CVPixelBufferPoolLinux, NeedsFormatWidthAndHeight)
{
    EXPECT_EQ(statusOf(nullptr, bufferAttributes().get()), kCVReturnSuccess);
    EXPECT_EQ(statusOf(nullptr, nullptr), kCVReturnInvalidPixelBufferAttributes);
    for (const auto key : {kCVPixelBufferPixelFormatTypeKey, kCVPixelBufferWidthKey, kCVPixelBufferHeightKey})
        EXPECT_EQ(statusWithoutBufferAttribute(key), kCVReturnInvalidPixelBufferAttributes);
}

TEST(CVPixelBufferPoolLinux, RefusesBadBufferAttributes)
{
    for (const auto key : {kCVPixelBufferWidthKey, kCVPixelBufferHeightKey}) {
        EXPECT_EQ(statusOfBufferAttribute({key, 0}), kCVReturnInvalidPixelBufferAttributes);
        EXPECT_EQ(statusOfBufferAttribute({key, -64}), kCVReturnInvalidPixelBufferAttributes);
        EXPECT_EQ(statusOfBufferAttribute({key, CFSTR("64")}), kCVReturnInvalidPixelBufferAttributes);
        EXPECT_EQ(statusOfBufferAttribute({key, 16385}), kCVReturnInvalidSize);
    }
    EXPECT_EQ(statusOfBufferAttribute({kCVPixelBufferPixelFormatTypeKey, CFSTR("2vuy")}),
              kCVReturnInvalidPixelBufferAttributes);
    EXPECT_EQ(statusOfBufferAttribute({kCVPixelBufferPixelFormatTypeKey, 0x3F3F3F3F}),
              kCVReturnInvalidPixelFormat);
}

TEST(CVPixelBufferPoolLinux, RefusesBadPoolAttributes)
{
    EXPECT_EQ(statusOfPoolAttribute({kCVPixelBufferPoolMinimumBufferCountKey, CFSTR("3")}),
              kCVReturnInvalidPoolAttributes);
    EXPECT_EQ(statusOfPoolAttribute({kCVPixelBufferPoolMinimumBufferCountKey, -1}),
              kCVReturnInvalidPoolAttributes);
    EXPECT_EQ(statusOfPoolAttribute({kCVPixelBufferPoolMaximumBufferAgeKey, kCFBooleanTrue}),
              kCVReturnInvalidPoolAttributes);
    EXPECT_EQ(statusOfPoolAttribute({kCVPixelBufferPoolMaximumBufferAgeKey, -0.5}),
              kCVReturnInvalidPoolAttributes);
    EXPECT_EQ(statusOfPoolAttribute(
                  {kCVPixelBufferPoolMaximumBufferAgeKey, std::numeric_limits<double>::infinity()}),
              kCVReturnInvalidPoolAttributes);
}

TEST(CVPixelBufferPoolLinux, RefusesABadThreshold)
{
    const auto pool = makePool(0.0);
    cf::Ref<CVPixelBufferRef> buffer;
    EXPECT_EQ(take(pool, {kCVPixelBufferPoolAllocationThresholdKey, CFSTR("2")}, buffer),
              kCVReturnInvalidPoolAttributes);
    EXPECT_EQ(take(pool, {kCVPixelBufferPoolAllocationThresholdKey, -1}, buffer),
              kCVReturnInvalidPoolAttributes);
    EXPECT_EQ(take(pool, {kCVPixelBufferPoolAllocationThresholdKey, 0}, buffer),
              kCVReturnWouldExceedAllocationThreshold);
}

TEST(CVPixelBufferPoolLinux, WritesNullWhenItRefuses)
{
    const auto pool = makePool(0.0);
    const auto held = take(pool);
    CVPixelBufferRef buffer = held.get();
    const auto one = makeDictionary({{kCVPixelBufferPoolAllocationThresholdKey, 1}});
    EXPECT_EQ(CVPixelBufferPoolCreatePixelBufferWithAuxAttributes(kCFAllocatorDefault, pool.get(), one.get(),
                                                                  &buffer),
              kCVReturnWouldExceedAllocationThreshold);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(CVPixelBufferPoolCreatePixelBuffer(kCFAllocatorDefault, nullptr, &buffer),
              kCVReturnInvalidArgument);
}

TEST(CVPixelBufferPoolLinux, AllocatesNothingBeforeTheFirstRequest)
{
    const auto before = openDescriptorCount();
    const auto pool = makePool(0.0, 10);
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(CVPixelBufferPoolLinux, FreesItsFreeBuffersWithItself)
{
    const auto before = openDescriptorCount();
    auto pool = makePool(0.0);
    auto held = take(pool);
    fill(pool, 3);
    EXPECT_EQ(openDescriptorCount(), before + 4);
    pool = {};
    EXPECT_EQ(openDescriptorCount(), before + 1);
    held = {};
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(CVPixelBufferPoolLinux, KeepsFreeBuffersWhenNoneAge)
{
    const auto before = openDescriptorCount();
    const auto pool = makePool(0.0);
    fill(pool, 3);
    CVPixelBufferPoolFlush(pool.get(), 0);
    fill(pool, 1);
    EXPECT_EQ(openDescriptorCount(), before + 3);
}

TEST(CVPixelBufferPoolLinux, FreesAgedBuffersAboveTheMinimum)
{
    const auto before = openDescriptorCount();
    const auto pool = makePool(kShortestAge, 2);
    fill(pool, 5);
    EXPECT_TRUE(waitFor([&] {
        CVPixelBufferPoolFlush(pool.get(), 0);
        return openDescriptorCount() == before + 2;
    }));
    CVPixelBufferPoolFlush(pool.get(), 0);
    EXPECT_EQ(openDescriptorCount(), before + 2);
}

TEST(CVPixelBufferPoolLinux, FreesAllFreeBuffersWhenItIsFlushedOfExcess)
{
    const auto before = openDescriptorCount();
    const auto pool = makePool(0.0, 3);
    const auto held = take(pool);
    fill(pool, 3);
    CVPixelBufferPoolFlush(pool.get(), kCVPixelBufferPoolFlushExcessBuffers);
    EXPECT_EQ(openDescriptorCount(), before + 1);
    cf::Ref<CVPixelBufferRef> buffer;
    EXPECT_EQ(take(pool, {kCVPixelBufferPoolAllocationThresholdKey, 2}, buffer), kCVReturnSuccess);
}

TEST(CVPixelBufferPoolLinux, DoesNotReuseASurfaceThatAnotherProcessUses)
{
    const auto pool = makePool(0.0);
    auto buffer = take(pool);
    const auto surface = cf::retain(CVPixelBufferGetIOSurface(buffer.get()));
    SurfaceUser user(surface.get());
    buffer = {};
    const Property threshold = {kCVPixelBufferPoolAllocationThresholdKey, 1};
    EXPECT_EQ(take(pool, threshold, buffer), kCVReturnWouldExceedAllocationThreshold);
    const auto other = take(pool);
    EXPECT_NE(CVPixelBufferGetIOSurface(other.get()), surface.get());

    user.stop();
    EXPECT_EQ(take(pool, threshold, buffer), kCVReturnSuccess);
    EXPECT_EQ(CVPixelBufferGetIOSurface(buffer.get()), surface.get());
}

TEST(CVPixelBufferPoolLinux, GivesUpASurfaceThatAKilledProcessUsed)
{
    const auto before = openDescriptorCount();
    const auto pool = makePool(kShortestAge, 1);
    auto buffer = take(pool);
    {
        SurfaceUser user(CVPixelBufferGetIOSurface(buffer.get()));
        user.kill();
    }
    buffer = {};
    EXPECT_TRUE(waitFor([&] {
        return take(pool, {kCVPixelBufferPoolAllocationThresholdKey, 1}, buffer) == kCVReturnSuccess;
    }));
    EXPECT_EQ(openDescriptorCount(), before + 1);
}

TEST(CVPixelBufferPoolLinux, DoesNotCountABufferThatCouldNotBeMade)
{
    const auto pool = makePool(0.0);
    cf::Ref<CVPixelBufferRef> buffer;
    const Property threshold = {kCVPixelBufferPoolAllocationThresholdKey, 1};
    {
        const SurfaceFailure failure;
        EXPECT_EQ(take(pool, threshold, buffer), kCVReturnAllocationFailed);
        EXPECT_FALSE(buffer);
    }
    EXPECT_EQ(take(pool, threshold, buffer), kCVReturnSuccess);
}

TEST(CVPixelBufferPoolLinux, ServesSeveralThreads)
{
    auto pool = makePool(kShortestAge, 2);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&pool] {
            for (int round = 0; round < 200; ++round) {
                const auto buffer = take(pool);
                ASSERT_TRUE(buffer);
                static_cast<std::uint8_t*>(CVPixelBufferGetBaseAddress(buffer.get()))[round] = 1;
            }
        });
    for (auto& thread : threads)
        thread.join();
}

TEST(CVPixelBufferPoolLinux, TakesBuffersBackOnOtherThreadsWhileItEnds)
{
    const auto before = openDescriptorCount();
    for (int round = 0; round < 50; ++round) {
        auto pool = makePool(0.0);
        auto first = take(pool);
        auto second = take(pool);
        std::thread other([&first] { first = {}; });
        pool = {};
        second = {};
        other.join();
    }
    EXPECT_EQ(openDescriptorCount(), before);
}

}  // namespace
