// Reference counting, as the compiler's generated calls expect it.

#include "Tests/MacOS/Runtime/Blocks.h"
#include "Tests/MacOS/Runtime/Runtime.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <set>
#include <unordered_map>

using namespace pavo::test::objc;

extern "C" {
void objc_msgSend(void);
Object* objc_retain(Object* object);
void objc_release(Object* object);
}

namespace pavo::test::objc {

namespace {

// Lies before each object.
struct alignas(16) Header {
    std::atomic<long> references;
};

// Guards what is known about objects from outside: weak references, associations, who lives.
struct Registry {
    std::mutex mutex;
    std::unordered_map<const void*, std::set<Object**>> weakReferences;
    std::unordered_map<const void*, std::map<const void*, Object*>> associations;
    std::map<const void*, const char*> live;
};

Registry& registry()
{
    static auto* const instance = new Registry;
    return *instance;
}

Header* headerOf(Object* object)
{
    return reinterpret_cast<Header*>(object) - 1;
}

// Classes, protocols and constant strings live as long as the process.
bool isImmortal(const Object* object)
{
    return !object->isa || object->isa->isMetaclass() ||
           std::strcmp(object->isa->data->name, "PavoConstantString") == 0;
}

void construct(ClassRecord* type, Object* object)
{
    static const char* const name = uniqueSelector(".cxx_construct");
    if (type->superclass) construct(type->superclass, object);
    if (const auto found = findOwnImplementation(type, name))
        reinterpret_cast<void (*)(Object*, const char*)>(found)(object, name);
}

// What the thread's innermost pools have to release. A pool is the length of the list when it was opened.
std::vector<Object*>& pool()
{
    struct Pool {
        ~Pool()
        {
            while (!objects.empty()) {
                auto* const object = objects.back();
                objects.pop_back();
                objc_release(object);
            }
        }
        std::vector<Object*> objects;
    };
    static thread_local Pool instance;
    return instance.objects;
}

Object* send(Object* object, const char* selector)
{
    return reinterpret_cast<Object* (*)(void*, const char*)>(&objc_msgSend)(object, uniqueSelector(selector));
}

void storeWeakLocked(Object** location, Object* object)
{
    auto& all = registry().weakReferences;
    if (*location) {
        const auto old = all.find(*location);
        old->second.erase(location);
        if (old->second.empty()) all.erase(old);
    }
    if (object && headerOf(object)->references == 0) object = nullptr;
    *location = object;
    if (object) all[object].insert(location);
}

void deallocate(Object* object)
{
    {
        const std::lock_guard lock(registry().mutex);
        const auto found = registry().weakReferences.find(object);
        if (found != registry().weakReferences.end()) {
            for (auto** location : found->second)
                *location = nullptr;
            registry().weakReferences.erase(found);
        }
    }
    send(object, "dealloc");
}

}  // namespace

std::size_t liveObjectCount()
{
    const std::lock_guard lock(registry().mutex);
    return registry().live.size();
}

std::vector<const char*> liveObjectClasses()
{
    const std::lock_guard lock(registry().mutex);
    std::vector<const char*> names;
    for (const auto& [object, name] : registry().live)
        names.push_back(name);
    return names;
}

void countLive(const void* object, const char* name)
{
    const std::lock_guard lock(registry().mutex);
    registry().live.emplace(object, name);
}

void forgetLive(const void* object)
{
    const std::lock_guard lock(registry().mutex);
    registry().live.erase(object);
}

Object* allocate(ClassRecord* type)
{
    auto* const memory = std::calloc(1, sizeof(Header) + type->data->instanceSize);
    auto* const object = reinterpret_cast<Object*>(new (memory) Header{1} + 1);
    object->isa = type;
    countLive(object, type->data->name);
    construct(type, object);
    return object;
}

void removeAssociations(const void* object)
{
    std::map<const void*, Object*> values;
    {
        const std::lock_guard lock(registry().mutex);
        const auto found = registry().associations.find(object);
        if (found == registry().associations.end()) return;
        values.swap(found->second);
        registry().associations.erase(found);
    }
    for (const auto& [key, value] : values)
        objc_release(value);
}

void destroy(Object* object)
{
    static const char* const name = uniqueSelector(".cxx_destruct");
    for (auto* type = object->isa; type; type = type->superclass)
        if (const auto found = findOwnImplementation(type, name))
            reinterpret_cast<void (*)(Object*, const char*)>(found)(object, name);
    removeAssociations(object);
    forgetLive(object);
    std::free(headerOf(object));
}

}  // namespace pavo::test::objc

extern "C" {

char _objc_empty_cache[16];

Object* objc_retain(Object* object)
{
    if (!object) return nullptr;
    if (isBlock(object)) return static_cast<Object*>(_Block_copy(object));
    if (object->isa && !isObjectiveC(object))
        return static_cast<Object*>(const_cast<void*>(CFRetain(object)));
    if (!isImmortal(object) && headerOf(object)->references.fetch_add(1) < 1)
        die("A dead object is retained: ", object->isa->data->name);
    return object;
}

void objc_release(Object* object)
{
    if (!object) return;
    if (isBlock(object)) return _Block_release(object);
    if (object->isa && !isObjectiveC(object)) return CFRelease(object);
    if (isImmortal(object)) return;
    const auto before = headerOf(object)->references.fetch_sub(1);
    if (before < 1) die("A dead object is released: ", object->isa->data->name);
    if (before == 1) deallocate(object);
}

Object* objc_autorelease(Object* object)
{
    if (object) pool().push_back(object);
    return object;
}

Object* objc_autoreleaseReturnValue(Object* object)
{
    return objc_autorelease(object);
}

Object* objc_retainAutorelease(Object* object)
{
    return objc_autorelease(objc_retain(object));
}

Object* objc_retainAutoreleaseReturnValue(Object* object)
{
    return objc_retainAutorelease(object);
}

// What was just given to the pool is taken back instead of retained once more, as the system does it.
Object* objc_retainAutoreleasedReturnValue(Object* object)
{
    if (!object || pool().empty() || pool().back() != object) return objc_retain(object);
    pool().pop_back();
    return object;
}

Object* objc_unsafeClaimAutoreleasedReturnValue(Object* object)
{
    if (!object || pool().empty() || pool().back() != object) return object;
    pool().pop_back();
    objc_release(object);
    return object;
}

void* objc_autoreleasePoolPush()
{
    return reinterpret_cast<void*>(pool().size());
}

void objc_autoreleasePoolPop(void* mark)
{
    while (pool().size() > reinterpret_cast<std::size_t>(mark)) {
        auto* const object = pool().back();
        pool().pop_back();
        objc_release(object);
    }
}

void objc_storeStrong(Object** location, Object* object)
{
    auto* const old = *location;
    *location = objc_retain(object);
    objc_release(old);
}

Object* objc_storeWeak(Object** location, Object* object)
{
    const std::lock_guard lock(registry().mutex);
    storeWeakLocked(location, object);
    return *location;
}

Object* objc_initWeak(Object** location, Object* object)
{
    *location = nullptr;
    return objc_storeWeak(location, object);
}

void objc_destroyWeak(Object** location)
{
    objc_storeWeak(location, nullptr);
}

Object* objc_loadWeakRetained(Object** location)
{
    const std::lock_guard lock(registry().mutex);
    auto* const object = *location;
    if (!object) return nullptr;
    auto& references = headerOf(object)->references;
    auto count = references.load();
    while (count > 0)
        if (references.compare_exchange_weak(count, count + 1)) return object;
    return nullptr;
}

Object* objc_loadWeak(Object** location)
{
    return objc_autorelease(objc_loadWeakRetained(location));
}

void objc_copyWeak(Object** to, Object** from)
{
    auto* const object = objc_loadWeakRetained(from);
    objc_initWeak(to, object);
    objc_release(object);
}

void objc_moveWeak(Object** to, Object** from)
{
    objc_copyWeak(to, from);
    objc_destroyWeak(from);
}

Object* objc_alloc(ClassRecord* type)
{
    return send(reinterpret_cast<Object*>(type), "alloc");
}

Object* objc_alloc_init(ClassRecord* type)
{
    return send(objc_alloc(type), "init");
}

Object* objc_opt_new(ClassRecord* type)
{
    return objc_alloc_init(type);
}

ClassRecord* objc_opt_class(Object* object)
{
    if (!object) return nullptr;
    auto* const type = classOf(object);
    return type && type->isMetaclass() ? reinterpret_cast<ClassRecord*>(object) : type;
}

signed char objc_opt_isKindOfClass(Object* object, ClassRecord* type)
{
    for (auto* own = object ? classOf(object) : nullptr; own; own = own->superclass)
        if (own == type) return 1;
    return 0;
}

signed char objc_opt_respondsToSelector(Object* object, const char* selector)
{
    return object && findImplementation(classOf(object), selector) != nullptr;
}

void objc_enumerationMutation(Object*)
{
    die("A collection changed while it was enumerated");
}

void objc_setAssociatedObject(Object* object, const void* key, Object* value, std::uintptr_t)
{
    objc_retain(value);
    Object* old = nullptr;
    {
        const std::lock_guard lock(registry().mutex);
        auto& values = registry().associations[object];
        const auto found = values.find(key);
        if (found != values.end()) old = found->second;
        if (value)
            values[key] = value;
        else
            values.erase(key);
    }
    objc_release(old);
}

}  // extern "C"
