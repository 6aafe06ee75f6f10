#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace cf {

struct AdoptTag {};

// Owns one reference to a Core Foundation style object. Copying retains, moving does not.
template <typename T>
class Ref {
public:
    Ref() = default;
    Ref(T object, AdoptTag) : object_(object) {}
    Ref(const Ref& other) : object_(other.object_)
    {
        if (object_) CFRetain(object_);
    }
    Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    ~Ref()
    {
        if (object_) CFRelease(object_);
    }
    Ref& operator=(Ref other) noexcept
    {
        std::swap(object_, other.object_);
        return *this;
    }

    T get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    [[nodiscard]] T release() { return std::exchange(object_, nullptr); }
    // For "Create" functions that write through a pointer. Drops what was held.
    [[nodiscard]] T* receive()
    {
        *this = Ref();
        return &object_;
    }

private:
    T object_ = nullptr;
};

// The result of a Create or Copy function: the caller's reference becomes ours.
template <typename T>
[[nodiscard]] Ref<T> adopt(T object)
{
    return {object, AdoptTag{}};
}

// The result of a Get function, or a parameter: take a reference of our own.
template <typename T>
[[nodiscard]] Ref<T> retain(T object)
{
    if (object) CFRetain(object);
    return adopt(object);
}

}  // namespace cf
