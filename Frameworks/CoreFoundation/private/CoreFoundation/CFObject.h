#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

// What every Core Foundation style object of these frameworks starts with. Seen by framework sources only:
// callers hold opaque pointers.
//
// A framework defines its type by deriving from Object and naming a Class:
//
//     struct __Thing : cf::runtime::Object {
//         static const cf::runtime::Class& classInfo();
//         …fields; the destructor releases what they own…
//     };
//     CFTypeID ThingGetTypeID(void) { return cf::runtime::typeID<__Thing>(); }
//     ThingRef ThingCreate(…) { return cf::runtime::create<__Thing>(…); }
namespace cf::runtime {

struct Object;

// Describes one type. Its address is its CFTypeID. Absent functions mean: equal and hashed by identity,
// described by name and address.
struct Class {
    const char* name;
    void (*destroy)(const Object*);
    bool (*equal)(const Object*, const Object*) = nullptr;
    CFHashCode (*hash)(const Object*) = nullptr;
    CFStringRef (*copyDescription)(const Object*) = nullptr;
};

struct Object {
    constexpr explicit Object(const Class& type, bool isImmortal = false)
        : isa(&type),
          retainCount(isImmortal ? kImmortal : 1)
    {}
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    static constexpr std::int64_t kImmortal = -1;  // constants of the process: retain and release do nothing

    const Class* isa;
    mutable std::atomic<std::int64_t> retainCount;
};

template <typename T>
void destroy(const Object* object)
{
    delete static_cast<const T*>(object);
}

// A new object with one reference, or null where memory is out.
template <typename T, typename... Arguments>
[[nodiscard]] T* create(Arguments&&... arguments)
{
    static_assert(std::is_base_of_v<Object, T> && !std::is_polymorphic_v<T>);
    return new (std::nothrow) T(std::forward<Arguments>(arguments)...);
}

template <typename T>
CFTypeID typeID()
{
    return reinterpret_cast<CFTypeID>(&T::classInfo());
}

inline const Object* asObject(CFTypeRef object)
{
    return static_cast<const Object*>(object);
}

// The object as a T, or null where it is absent or of another type.
template <typename T>
const T* cast(CFTypeRef object)
{
    if (!object || asObject(object)->isa != &T::classInfo()) return nullptr;
    return static_cast<const T*>(asObject(object));
}

}  // namespace cf::runtime
