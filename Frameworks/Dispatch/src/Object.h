#pragma once

#include <dispatch/object.h>

#include <atomic>

namespace dispatch::runtime {

class Queue;

// The base of everything that a dispatch handle stands for.
//
// Ownership: counted twice. Clients hold external references; all of them together, work that waits or runs,
//            and objects that depend on this one hold internal references. The rules about suspended objects
//            are checked when the last external reference goes, the object goes with the last internal one.
// Threads:   every function may be called on every thread.
class Object {
public:
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    void retain();
    void release();
    void retainInternally();
    void releaseInternally();

    void setContext(void* context);
    void* context() const { return context_; }
    void setFinalizer(dispatch_function_t finalizer);

    // Objects that cannot be suspended ignore these, as on the platform.
    virtual void activate() {}
    virtual void suspend() {}
    virtual void resume() {}

protected:
    enum class Lifetime { counted, immortal };
    explicit Object(Lifetime lifetime = Lifetime::counted) : isImmortal_(lifetime == Lifetime::immortal) {}
    virtual ~Object() = default;

    // Where the finalizer runs.
    virtual Queue& finalizerQueue() const;
    // The last external reference is gone.
    virtual void abandon() {}

private:
    void dispose();

    const bool isImmortal_;
    std::atomic<int> externalReferences_{1};
    std::atomic<int> internalReferences_{1};
    std::atomic<void*> context_{nullptr};
    std::atomic<dispatch_function_t> finalizer_{nullptr};
};

// A handle is the address of the Object, whatever its kind.
template <typename Kind>
Kind& fromHandle(dispatch_object_t handle)
{
    return static_cast<Kind&>(*reinterpret_cast<Object*>(handle));
}
template <typename Handle>
Handle toHandle(Object& object)
{
    return reinterpret_cast<Handle>(&object);
}

}  // namespace dispatch::runtime
