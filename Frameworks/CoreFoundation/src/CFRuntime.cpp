#include <CoreFoundation/CFObject.h>
#include <CoreFoundation/CoreFoundation.h>

#include <climits>
#include <cstdio>
#include <string>

#include "Platform/Support/Fatal.h"

// Reference counting and the functions that work on objects of every type.
namespace {

using cf::runtime::Object;

// Callers that pass null have lost track of an object; going on would hide where.
const Object& checked(CFTypeRef cf, const char* function)
{
    if (!cf) [[unlikely]]
        pavo::fatalError(std::string(function) + "() called with NULL");
    return *cf::runtime::asObject(cf);
}

}  // namespace

const CFAllocatorRef kCFAllocatorDefault = nullptr;

CFTypeID CFGetTypeID(CFTypeRef cf)
{
    return reinterpret_cast<CFTypeID>(checked(cf, "CFGetTypeID").isa);
}

CFTypeRef CFRetain(CFTypeRef cf)
{
    const auto& object = checked(cf, "CFRetain");
    // An immortal object never stops being one, so nobody counts what this reads as immortal.
    if (object.retainCount.load(std::memory_order_relaxed) != Object::kImmortal)
        object.retainCount.fetch_add(1, std::memory_order_relaxed);
    return cf;
}

void CFRelease(CFTypeRef cf)
{
    const auto& object = checked(cf, "CFRelease");
    if (object.retainCount.load(std::memory_order_relaxed) == Object::kImmortal) return;
    // Whoever drops the last reference must see what the others did before they dropped theirs.
    if (object.retainCount.fetch_sub(1, std::memory_order_acq_rel) == 1) object.isa->destroy(&object);
}

CFIndex CFGetRetainCount(CFTypeRef cf)
{
    const auto count = checked(cf, "CFGetRetainCount").retainCount.load(std::memory_order_relaxed);
    return count == Object::kImmortal ? LONG_MAX : count;
}

Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2)
{
    const auto& first = checked(cf1, "CFEqual");
    const auto& second = checked(cf2, "CFEqual");
    if (&first == &second) return true;
    return first.isa == second.isa && first.isa->equal && first.isa->equal(&first, &second);
}

CFHashCode CFHash(CFTypeRef cf)
{
    const auto& object = checked(cf, "CFHash");
    return object.isa->hash ? object.isa->hash(&object) : reinterpret_cast<CFHashCode>(cf);
}

CFStringRef CFCopyDescription(CFTypeRef cf)
{
    const auto& object = checked(cf, "CFCopyDescription");
    if (object.isa->copyDescription) return object.isa->copyDescription(&object);
    char text[128];
    std::snprintf(text, sizeof text, "<%s %p>", object.isa->name, cf);
    return CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8);
}
