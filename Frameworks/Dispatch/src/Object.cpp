#include "Object.h"

#include "ClientBug.h"
#include "GlobalQueue.h"

namespace dispatch::runtime {

void Object::retain()
{
    if (!isImmortal_) externalReferences_.fetch_add(1, std::memory_order_relaxed);
}

void Object::release()
{
    if (isImmortal_) return;
    const int before = externalReferences_.fetch_sub(1, std::memory_order_acq_rel);
    if (before > 1) return;
    if (before < 1) clientBug("Over-release of an object");
    abandon();
    releaseInternally();
}

void Object::retainInternally()
{
    if (!isImmortal_) internalReferences_.fetch_add(1, std::memory_order_relaxed);
}

void Object::releaseInternally()
{
    if (!isImmortal_ && internalReferences_.fetch_sub(1, std::memory_order_acq_rel) == 1) dispose();
}

void Object::setContext(void* context)
{
    if (!isImmortal_) context_ = context;
}

void Object::setFinalizer(dispatch_function_t finalizer)
{
    if (!isImmortal_) finalizer_ = finalizer;
}

Queue& Object::finalizerQueue() const
{
    return GlobalQueue::withLevel(Level::standard);
}

void Object::dispose()
{
    // The queue may be held by this object alone, so it is kept until the finalizer waits on it.
    Queue& queue = finalizerQueue();
    queue.retainInternally();
    void* const context = context_;
    const dispatch_function_t finalizer = finalizer_;
    delete this;
    if (context && finalizer) queue.async(context, finalizer);
    queue.releaseInternally();
}

}  // namespace dispatch::runtime

using dispatch::runtime::fromHandle;
using dispatch::runtime::Object;

void dispatch_retain(dispatch_object_t object)
{
    fromHandle<Object>(object).retain();
}

void dispatch_release(dispatch_object_t object)
{
    fromHandle<Object>(object).release();
}

void dispatch_set_context(dispatch_object_t object, void* context)
{
    fromHandle<Object>(object).setContext(context);
}

void* dispatch_get_context(dispatch_object_t object)
{
    return fromHandle<Object>(object).context();
}

void dispatch_set_finalizer_f(dispatch_object_t object, dispatch_function_t finalizer)
{
    fromHandle<Object>(object).setFinalizer(finalizer);
}

void dispatch_activate(dispatch_object_t object)
{
    fromHandle<Object>(object).activate();
}

void dispatch_suspend(dispatch_object_t object)
{
    fromHandle<Object>(object).suspend();
}

void dispatch_resume(dispatch_object_t object)
{
    fromHandle<Object>(object).resume();
}
