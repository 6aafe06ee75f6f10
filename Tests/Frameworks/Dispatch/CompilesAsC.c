#include <dispatch/dispatch.h>

#include <assert.h>

static_assert(sizeof(dispatch_object_t) == sizeof(void*), "any handle is passed like a pointer");
static_assert(sizeof(dispatch_time_t) == 8, "times are 64 bits wide");
static_assert(sizeof(qos_class_t) == 4, "classes are 32 bits wide");
static_assert(sizeof(dispatch_once_t) == sizeof(void*), "a predicate is as wide as a pointer");

static void increment(void* context)
{
    ++*(int*)context;
}

// Goes once through each kind of object from C, where a handle converts through a union.
int countFromC(void)
{
    int count = 0;
    dispatch_once_t predicate = 0;
    dispatch_queue_t queue = dispatch_queue_create(
        "c", dispatch_queue_attr_make_with_qos_class(DISPATCH_QUEUE_SERIAL, QOS_CLASS_UTILITY, -1));
    dispatch_source_t source =
        dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, DISPATCH_TIMER_STRICT, queue);
    dispatch_semaphore_t semaphore = dispatch_semaphore_create(0);

    dispatch_sync_f(queue, &count, increment);
    dispatch_once_f(&predicate, &count, increment);
    dispatch_source_cancel(source);
    dispatch_resume(source);
    if (dispatch_semaphore_wait(semaphore, DISPATCH_TIME_NOW) != 0) increment(&count);

    dispatch_release(semaphore);
    dispatch_release(source);
    dispatch_release(queue);
    return count;
}
