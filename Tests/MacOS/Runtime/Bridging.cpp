// Core Foundation and Objective-C share their objects, as on macOS: either side can count the other's.

#include "Tests/MacOS/Runtime/Runtime.h"

#include <CoreFoundation/CoreFoundation.h>
#include <IOSurface/IOSurface.h>
#include <dispatch/dispatch.h>

#include <memory>
#include <thread>

using namespace pavo::test::objc;

extern "C" {
Object* objc_retain(Object* object);
void objc_release(Object* object);
void* objc_autoreleasePoolPush();
void objc_autoreleasePoolPop(void* mark);

CFTypeRef __real_CFRetain(CFTypeRef object);
void __real_CFRelease(CFTypeRef object);
void __real_dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work);
void __real_dispatch_after_f(dispatch_time_t when, dispatch_queue_t queue, void* context,
                             dispatch_function_t work);
void __real_dispatch_sync_f(dispatch_queue_t queue, void* context, dispatch_function_t work);

CFTypeRef __wrap_CFRetain(CFTypeRef object)
{
    if (object && isObjectiveC(object)) return objc_retain(static_cast<Object*>(const_cast<void*>(object)));
    return __real_CFRetain(object);
}

void __wrap_CFRelease(CFTypeRef object)
{
    if (object && isObjectiveC(object)) return objc_release(static_cast<Object*>(const_cast<void*>(object)));
    __real_CFRelease(object);
}

}  // extern "C"

namespace {

// Work on a queue, which has a pool of its own: else its objects would live until the queue's thread ends.
struct Pooled {
    void* context;
    dispatch_function_t work;

    void run() const
    {
        void* const mark = objc_autoreleasePoolPush();
        work(context);
        objc_autoreleasePoolPop(mark);
    }
    static void runOnce(void* pointer)
    {
        const std::unique_ptr<Pooled> pooled(static_cast<Pooled*>(pointer));
        pooled->run();
    }
};

}  // namespace

extern "C" {
void __wrap_dispatch_async_f(dispatch_queue_t queue, void* context, dispatch_function_t work)
{
    __real_dispatch_async_f(queue, new Pooled{context, work}, Pooled::runOnce);
}

void __wrap_dispatch_after_f(dispatch_time_t when, dispatch_queue_t queue, void* context,
                             dispatch_function_t work)
{
    __real_dispatch_after_f(when, queue, new Pooled{context, work}, Pooled::runOnce);
}

// What is waited for runs on the waiting thread, in that one's pool; but not here, where the queue is busy.
void __wrap_dispatch_sync_f(dispatch_queue_t queue, void* context, dispatch_function_t work)
{
    struct Awaited {
        Pooled pooled;
        std::thread::id waiting;
    };
    Awaited awaited{{context, work}, std::this_thread::get_id()};
    __real_dispatch_sync_f(queue, &awaited, [](void* pointer) {
        const auto& [pooled, waiting] = *static_cast<const Awaited*>(pointer);
        if (std::this_thread::get_id() == waiting)
            pooled.work(pooled.context);
        else
            pooled.run();
    });
}

}  // extern "C"

namespace pavo::test::objc {

ClassRecord* classOf(const void* object)
{
    if (isObjectiveC(object)) return static_cast<const Object*>(object)->isa;
    if (isBlock(object) || !static_cast<const Object*>(object)->isa) return nullptr;
    const auto type = CFGetTypeID(object);
    if (type == CFStringGetTypeID()) return findClass("PavoBridgedString");
    if (type == CFDictionaryGetTypeID()) return findClass("PavoBridgedDictionary");
    if (type == IOSurfaceGetTypeID()) return findClass("IOSurface");
    return nullptr;
}

}  // namespace pavo::test::objc
