// The runtime under the adapters' tests: what macOS does, and the adapters count on.

#include "Tests/MacOS/AdapterFixture.h"
#include "Tests/Support/Wait.h"

#include <Foundation/Foundation.h>
#include <IOSurface/IOSurface.h>
#include <IOSurface/IOSurfaceObjC.h>

#include <dispatch/dispatch.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>

namespace objc = pavo::test::objc;

namespace {

struct Large {
    long values[6];
};

}  // namespace

@protocol PavoRuntimeBase <NSObject>
- (int)base;
@end

@protocol PavoRuntimeProbe <PavoRuntimeBase>
- (Large)largeWithFirst:(long)first real:(double)real;
@end

@interface PavoProbe : NSObject <PavoRuntimeProbe> {
@public
    std::shared_ptr<int> _shared;
}
@property(copy) int (^handler)(int);
@property(weak) PavoProbe* parent;
@property(strong) NSObject* child;
@end

@implementation PavoProbe

- (int)base
{
    return 1;
}

- (Large)largeWithFirst:(long)first real:(double)real
{
    return {{first, static_cast<long>(real), 3, 4, 5, 6}};
}

@end

@interface PavoSubprobe : PavoProbe
@end

@implementation PavoSubprobe

- (int)base
{
    return [super base] + 10;
}

@end

// Passes everything on.
@interface PavoForwarder : NSObject {
@public
    id _target;
}
- (id)forwardingTargetForSelector:(SEL)selector;
@end

@implementation PavoForwarder

- (id)forwardingTargetForSelector:(SEL)selector
{
    return _target;
}

@end

namespace {

using ObjectiveCRuntime = pavo::test::AdapterTest;

TEST_F(ObjectiveCRuntime, AnswersOverriddenMethodsAndThoseOfTheSuperclass)
{
    EXPECT_EQ([[[PavoSubprobe alloc] init] base], 11);
    EXPECT_TRUE([[PavoSubprobe new] isKindOfClass:[PavoProbe class]]);
    EXPECT_FALSE([[PavoSubprobe new] isMemberOfClass:[PavoProbe class]]);
}

TEST_F(ObjectiveCRuntime, ReturnsStructuresThroughMemory)
{
    const Large large = [[PavoProbe new] largeWithFirst:7 real:2.5];
    EXPECT_EQ(large.values[0], 7);
    EXPECT_EQ(large.values[1], 2);
    EXPECT_EQ(large.values[5], 6);
}

TEST_F(ObjectiveCRuntime, AnswersZeroForNil)
{
    PavoProbe* const none = nil;
    EXPECT_EQ([none base], 0);
    EXPECT_EQ([none largeWithFirst:1 real:1].values[0], 0);
    EXPECT_EQ(none.child, nil);
}

TEST_F(ObjectiveCRuntime, ForwardsWithAllArguments)
{
    PavoForwarder* const forwarder = [[PavoForwarder alloc] init];
    forwarder->_target = [[PavoProbe alloc] init];
    const Large large = [static_cast<id<PavoRuntimeProbe>>(forwarder) largeWithFirst:8 real:9];
    EXPECT_EQ(large.values[0], 8);
    EXPECT_EQ(large.values[1], 9);
    EXPECT_EQ([static_cast<id<PavoRuntimeProbe>>(forwarder) base], 1);
}

TEST_F(ObjectiveCRuntime, ClearsWeakReferencesWhenTheObjectGoes)
{
    PavoProbe* const child = [[PavoProbe alloc] init];
    {
        PavoProbe* const parent = [[PavoProbe alloc] init];
        child.parent = parent;
        EXPECT_EQ(child.parent, parent);
    }
    @autoreleasepool {
        EXPECT_EQ(child.parent, nil);
    }
}

TEST_F(ObjectiveCRuntime, MakesAndDestroysFieldsOfCPlusPlus)
{
    const auto shared = std::make_shared<int>(5);
    {
        PavoProbe* const probe = [[PavoSubprobe alloc] init];
        probe->_shared = shared;
        EXPECT_EQ(shared.use_count(), 2);
    }
    EXPECT_EQ(shared.use_count(), 1);
}

TEST_F(ObjectiveCRuntime, CopiesBlocksWithWhatTheyHold)
{
    const auto shared = std::make_shared<int>(5);
    @autoreleasepool {
        PavoProbe* const probe = [[PavoProbe alloc] init];
        __block int sum = 0;
        PavoProbe* const held = [[PavoProbe alloc] init];
        probe.handler = ^(int value) {
          sum += value + [held base];
          return sum + *shared;
        };
        EXPECT_EQ(probe.handler(2), 8);
        EXPECT_EQ(sum, 3);
        EXPECT_GT(shared.use_count(), 1);
        probe.handler = nil;
    }
    EXPECT_EQ(shared.use_count(), 1);
}

TEST_F(ObjectiveCRuntime, KeepsAssociatedValuesAsLongAsTheirObject)
{
    static char key;
    __weak PavoProbe* weakValue = nil;
    @autoreleasepool {
        PavoProbe* const object = [[PavoProbe alloc] init];
        @autoreleasepool {
            PavoProbe* const value = [[PavoProbe alloc] init];
            weakValue = value;
            objc_setAssociatedObject(object, &key, value, OBJC_ASSOCIATION_RETAIN);
        }
        EXPECT_NE(weakValue, nil);
    }
    EXPECT_EQ(weakValue, nil);
}

TEST_F(ObjectiveCRuntime, ReleasesWhatAPoolHolds)
{
    __weak PavoProbe* weakProbe = nil;
    @autoreleasepool {
        const id probe = [[PavoProbe alloc] init];
        weakProbe = probe;
        [probe performSelector:@selector(self)];
    }
    EXPECT_EQ(weakProbe, nil);
}

TEST_F(ObjectiveCRuntime, FindsClassesAndProtocolsByName)
{
    EXPECT_EQ(objc_getClass("PavoProbe"), [PavoProbe class]);
    EXPECT_EQ(objc_getClass("NoSuchClass"), Nil);
    EXPECT_EQ(objc_getProtocol("PavoRuntimeProbe"), @protocol(PavoRuntimeProbe));
    EXPECT_TRUE([[PavoSubprobe new] conformsToProtocol:@protocol(PavoRuntimeBase)]);
    EXPECT_FALSE([[PavoForwarder new] conformsToProtocol:@protocol(PavoRuntimeBase)]);
}

TEST_F(ObjectiveCRuntime, BridgesObjectsOfCoreFoundation)
{
    @autoreleasepool {
        const id string = (__bridge_transfer NSString*)CFStringCreateWithCString(kCFAllocatorDefault, "text",
                                                                                 kCFStringEncodingUTF8);
        EXPECT_TRUE([string isKindOfClass:[NSString class]]);
        EXPECT_STREQ([string UTF8String], "text");
        const CFTypeRef probe = (__bridge_retained CFTypeRef)[[PavoProbe alloc] init];
        CFRetain(probe);
        CFRelease(probe);
        CFRelease(probe);
    }
}

TEST_F(ObjectiveCRuntime, CountsCorrectlyFromSeveralThreads)
{
    PavoProbe* const probe = [[PavoProbe alloc] init];
    const auto work = [probe] {
        for (int i = 0; i < 2000; ++i) {
            @autoreleasepool {
                __weak PavoProbe* const weakProbe = probe;
                PavoProbe* const strong = weakProbe;
                EXPECT_EQ([strong base], 1);
                probe.child = [[PavoProbe alloc] init];
                EXPECT_NE(probe.child, nil);
            }
        }
    };
    std::thread first(work);
    std::thread second(work);
    first.join();
    second.join();
}

// What work on a queue leaves in its pool.
struct Leftover {
    __weak PavoProbe* probe;
    std::atomic<bool> isLeft = false;

    static void leave(void* context)
    {
        auto& self = *static_cast<Leftover*>(context);
        PavoProbe* __autoreleasing probe = [[PavoProbe alloc] init];
        self.probe = probe;
        self.isLeft = true;
    }
};

TEST_F(ObjectiveCRuntime, DrainsThePoolOfWorkOnAQueueWhenTheWorkIsDone)
{
    const dispatch_queue_t queue = dispatch_queue_create("com.tarnwell.test.pool", nullptr);
    const auto waitForQueue = [queue] { dispatch_sync_f(queue, nullptr, [](void*) {}); };
    Leftover async, after, sync;
    dispatch_async_f(queue, &async, Leftover::leave);
    waitForQueue();
    EXPECT_TRUE(async.isLeft);
    EXPECT_EQ(async.probe, nil);

    dispatch_after_f(dispatch_time(DISPATCH_TIME_NOW, 1'000'000), queue, &after, Leftover::leave);
    ASSERT_TRUE(pavo::test::waitFor([&after] { return after.isLeft.load(); }, std::chrono::seconds(30)));
    waitForQueue();
    EXPECT_EQ(after.probe, nil);

    // Once the queue goes on, its own thread does the work.
    dispatch_suspend(queue);
    dispatch_after_f(dispatch_time(DISPATCH_TIME_NOW, 20'000'000), dispatch_get_global_queue(0, 0), queue,
                     [](void* suspended) { dispatch_resume(static_cast<dispatch_queue_t>(suspended)); });
    @autoreleasepool {
        dispatch_sync_f(queue, &sync, Leftover::leave);
    }
    EXPECT_TRUE(sync.isLeft);
    EXPECT_EQ(sync.probe, nil);
    dispatch_release(queue);
}

TEST(ObjectiveCRuntimeDeathTest, EndsOnAMessageThatNobodyUnderstands)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH((void)[static_cast<id<PavoRuntimeBase>>([NSObject new]) base],
                 "NSObject does not understand base");
}

TEST(ObjectiveCRuntimeDeathTest, EndsWhenAnObserverIsRemovedTwice)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    NSObject* const object = [NSObject new];
    EXPECT_DEATH([object removeObserver:object forKeyPath:@"path" context:nullptr], "not registered");
}

}  // namespace
