// The accessors that the compiler has the runtime do for it.

#include "Tests/MacOS/Runtime/Blocks.h"
#include "Tests/MacOS/Runtime/Runtime.h"

#include <cstddef>
#include <cstring>
#include <mutex>

using namespace pavo::test::objc;

extern "C" {
Object* objc_retain(Object* object);
void objc_release(Object* object);
Object* objc_autorelease(Object* object);
}

namespace {

std::mutex& propertyMutex()
{
    static auto* const mutex = new std::mutex;
    return *mutex;
}

Object** fieldOf(Object* object, std::ptrdiff_t offset)
{
    return reinterpret_cast<Object**>(reinterpret_cast<char*>(object) + offset);
}

// Takes over the caller's reference of `value`.
void exchange(Object* object, std::ptrdiff_t offset, Object* value)
{
    Object* old = value;
    {
        const std::lock_guard lock(propertyMutex());
        std::swap(*fieldOf(object, offset), old);
    }
    objc_release(old);
}

// Our doubles copy blocks, and immutable objects, of which a copy is the same object.
Object* copied(Object* value)
{
    return objc_retain(value);
}

}  // namespace

extern "C" {

Object* objc_getProperty(Object* object, const char*, std::ptrdiff_t offset, bool)
{
    Object* value = nullptr;
    {
        const std::lock_guard lock(propertyMutex());
        value = objc_retain(*fieldOf(object, offset));
    }
    return objc_autorelease(value);
}

void objc_setProperty_atomic(Object* object, const char*, Object* value, std::ptrdiff_t offset)
{
    exchange(object, offset, objc_retain(value));
}

void objc_setProperty_nonatomic(Object* object, const char*, Object* value, std::ptrdiff_t offset)
{
    exchange(object, offset, objc_retain(value));
}

void objc_setProperty_atomic_copy(Object* object, const char*, Object* value, std::ptrdiff_t offset)
{
    exchange(object, offset, copied(value));
}

void objc_setProperty_nonatomic_copy(Object* object, const char*, Object* value, std::ptrdiff_t offset)
{
    exchange(object, offset, copied(value));
}

}  // extern "C"
