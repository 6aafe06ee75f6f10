#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFObject.h>
#include <CoreFoundation/CFString.h>

#include <algorithm>
#include <string>
#include <vector>

#include "CFCollection.h"
#include "Platform/Support/Fatal.h"

struct __CFArray : cf::runtime::Object {
    __CFArray(const CFArrayCallBacks& ownership, std::vector<const void*> content)
        : Object(classInfo()),
          callBacks(ownership),
          values(std::move(content))
    {
        for (auto& value : values)
            value = cf::runtime::keep(callBacks, value);
    }
    ~__CFArray()
    {
        for (const void* value : values)
            cf::runtime::drop(callBacks, value);
    }
    __CFArray(const __CFArray&) = delete;
    __CFArray& operator=(const __CFArray&) = delete;
    static const cf::runtime::Class& classInfo();

    const CFArrayCallBacks callBacks;
    std::vector<const void*> values;
};

namespace {

using cf::runtime::Object;

const __CFArray& asArray(const Object* object)
{
    return *static_cast<const __CFArray*>(object);
}

bool areEqual(const Object* first, const Object* second)
{
    const auto& a = asArray(first);
    const auto& b = asArray(second);
    return std::equal(a.values.begin(), a.values.end(), b.values.begin(), b.values.end(),
                      [&a](const void* left, const void* right) {
                          return cf::runtime::areEqual(a.callBacks, left, right);
                      });
}

CFHashCode hash(const Object* object)
{
    return asArray(object).values.size();
}

CFStringRef copyDescription(const Object* object)
{
    const auto& array = asArray(object);
    std::string text = "(";
    for (const void* value : array.values) {
        if (text.size() > 1) text += ", ";
        text += cf::runtime::description(array.callBacks, value);
    }
    return cf::runtime::createString(text + ")");
}

}  // namespace

const CFArrayCallBacks kCFTypeArrayCallBacks = {0, cf::runtime::retainValue, cf::runtime::releaseValue,
                                                CFCopyDescription, CFEqual};

const cf::runtime::Class& __CFArray::classInfo()
{
    static constinit const cf::runtime::Class info{"CFArray", cf::runtime::destroy<__CFArray>, areEqual, hash,
                                                   copyDescription};
    return info;
}

CFTypeID CFArrayGetTypeID(void)
{
    return cf::runtime::typeID<__CFArray>();
}

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex numValues,
                         const CFArrayCallBacks* callBacks)
{
    pavo::require(numValues >= 0 && (values || numValues == 0), "CFArrayCreate() called without values");
    return cf::runtime::create<__CFArray>(callBacks ? *callBacks : CFArrayCallBacks{},
                                          std::vector<const void*>(values, values + numValues));
}

CFIndex CFArrayGetCount(CFArrayRef theArray)
{
    return static_cast<CFIndex>(theArray->values.size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx)
{
    pavo::require(idx >= 0 && idx < CFArrayGetCount(theArray),
                  "CFArrayGetValueAtIndex() called with an index beyond the array");
    return theArray->values[static_cast<std::size_t>(idx)];
}
