#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFObject.h>
#include <CoreFoundation/CFString.h>

#include <functional>
#include <string>
#include <unordered_map>

#include "CFCollection.h"
#include "Platform/Support/Fatal.h"

namespace {

struct KeyHash {
    CFDictionaryHashCallBack hash;
    std::size_t operator()(const void* key) const { return hash ? hash(key) : std::hash<const void*>()(key); }
};

struct KeyEqual {
    CFDictionaryEqualCallBack equal;
    bool operator()(const void* left, const void* right) const
    {
        return left == right || (equal && equal(left, right));
    }
};

}  // namespace

struct __CFDictionary : cf::runtime::Object {
    using Entries = std::unordered_map<const void*, const void*, KeyHash, KeyEqual>;

    __CFDictionary(bool mayChange, const CFDictionaryKeyCallBacks& keys,
                   const CFDictionaryValueCallBacks& values)
        : Object(classInfo()),
          isMutable(mayChange),
          keyCallBacks(keys),
          valueCallBacks(values),
          entries(0, KeyHash{keys.hash}, KeyEqual{keys.equal})
    {}
    ~__CFDictionary() { removeAll(); }
    __CFDictionary(const __CFDictionary&) = delete;
    __CFDictionary& operator=(const __CFDictionary&) = delete;
    static const cf::runtime::Class& classInfo();

    void add(const void* key, const void* value)
    {
        if (entries.contains(key)) return;
        entries.emplace(cf::runtime::keep(keyCallBacks, key), cf::runtime::keep(valueCallBacks, value));
    }
    void set(const void* key, const void* value)
    {
        const auto found = entries.find(key);
        if (found == entries.end()) return add(key, value);
        // The old value goes last: it may be the new one, with this dictionary as its only owner.
        const void* const old = found->second;
        found->second = cf::runtime::keep(valueCallBacks, value);
        cf::runtime::drop(valueCallBacks, old);
    }
    void remove(const void* key)
    {
        const auto found = entries.find(key);
        if (found == entries.end()) return;
        const auto [oldKey, oldValue] = *found;
        entries.erase(found);
        cf::runtime::drop(valueCallBacks, oldValue);
        cf::runtime::drop(keyCallBacks, oldKey);
    }
    void removeAll()
    {
        for (const auto& [key, value] : entries) {
            cf::runtime::drop(valueCallBacks, value);
            cf::runtime::drop(keyCallBacks, key);
        }
        entries.clear();
    }

    const bool isMutable;
    const CFDictionaryKeyCallBacks keyCallBacks;
    const CFDictionaryValueCallBacks valueCallBacks;
    Entries entries;
};

namespace {

using cf::runtime::Object;

const __CFDictionary& asDictionary(const Object* object)
{
    return *static_cast<const __CFDictionary*>(object);
}

bool areEqual(const Object* first, const Object* second)
{
    const auto& a = asDictionary(first);
    const auto& b = asDictionary(second);
    if (a.entries.size() != b.entries.size()) return false;
    for (const auto& [key, value] : a.entries) {
        const auto other = b.entries.find(key);
        if (other == b.entries.end() || !cf::runtime::areEqual(a.valueCallBacks, value, other->second))
            return false;
    }
    return true;
}

CFHashCode hash(const Object* object)
{
    return asDictionary(object).entries.size();
}

CFStringRef copyDescription(const Object* object)
{
    const auto& dictionary = asDictionary(object);
    std::string text = "{";
    for (const auto& [key, value] : dictionary.entries) {
        if (text.size() > 1) text += "; ";
        text += cf::runtime::description(dictionary.keyCallBacks, key) + " = " +
                cf::runtime::description(dictionary.valueCallBacks, value);
    }
    return cf::runtime::createString(text + "}");
}

__CFDictionary* createDictionary(bool isMutable, const CFDictionaryKeyCallBacks* keyCallBacks,
                                 const CFDictionaryValueCallBacks* valueCallBacks)
{
    return cf::runtime::create<__CFDictionary>(
        isMutable, keyCallBacks ? *keyCallBacks : CFDictionaryKeyCallBacks{},
        valueCallBacks ? *valueCallBacks : CFDictionaryValueCallBacks{});
}

__CFDictionary* copyDictionary(bool isMutable, CFDictionaryRef original)
{
    auto* const copy = createDictionary(isMutable, &original->keyCallBacks, &original->valueCallBacks);
    for (const auto& [key, value] : original->entries)
        copy->add(key, value);
    return copy;
}

__CFDictionary& checkedMutable(CFMutableDictionaryRef dictionary)
{
    pavo::require(dictionary->isMutable, "A dictionary that is not mutable was to be changed");
    return *dictionary;
}

}  // namespace

const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {
    0, cf::runtime::retainValue, cf::runtime::releaseValue, CFCopyDescription, CFEqual, CFHash};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {
    0, cf::runtime::retainValue, cf::runtime::releaseValue, CFCopyDescription, CFEqual};

const cf::runtime::Class& __CFDictionary::classInfo()
{
    static constinit const cf::runtime::Class info{"CFDictionary", cf::runtime::destroy<__CFDictionary>,
                                                   areEqual, hash, copyDescription};
    return info;
}

CFTypeID CFDictionaryGetTypeID(void)
{
    return cf::runtime::typeID<__CFDictionary>();
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values, CFIndex numValues,
                                   const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks)
{
    pavo::require(numValues >= 0 && ((keys && values) || numValues == 0),
                  "CFDictionaryCreate() called without keys or values");
    auto* const dictionary = createDictionary(false, keyCallBacks, valueCallBacks);
    for (CFIndex i = 0; i < numValues; ++i)
        dictionary->add(keys[i], values[i]);
    return dictionary;
}

CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef, CFDictionaryRef theDict)
{
    return copyDictionary(false, theDict);
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks)
{
    return createDictionary(true, keyCallBacks, valueCallBacks);
}

CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef, CFIndex, CFDictionaryRef theDict)
{
    return copyDictionary(true, theDict);
}

CFIndex CFDictionaryGetCount(CFDictionaryRef theDict)
{
    return static_cast<CFIndex>(theDict->entries.size());
}

Boolean CFDictionaryContainsKey(CFDictionaryRef theDict, const void* key)
{
    return theDict->entries.contains(key);
}

const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key)
{
    const auto found = theDict->entries.find(key);
    return found == theDict->entries.end() ? nullptr : found->second;
}

Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef theDict, const void* key, const void** value)
{
    const auto found = theDict->entries.find(key);
    if (found == theDict->entries.end()) return false;
    if (value) *value = found->second;
    return true;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef theDict, const void** keys, const void** values)
{
    std::size_t i = 0;
    for (const auto& [key, value] : theDict->entries) {
        if (keys) keys[i] = key;
        if (values) values[i] = value;
        ++i;
    }
}

void CFDictionaryApplyFunction(CFDictionaryRef theDict, CFDictionaryApplierFunction applier, void* context)
{
    for (const auto& [key, value] : theDict->entries)
        applier(key, value, context);
}

void CFDictionaryAddValue(CFMutableDictionaryRef theDict, const void* key, const void* value)
{
    checkedMutable(theDict).add(key, value);
}

void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key, const void* value)
{
    checkedMutable(theDict).set(key, value);
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef theDict, const void* key)
{
    checkedMutable(theDict).remove(key);
}

void CFDictionaryRemoveAllValues(CFMutableDictionaryRef theDict)
{
    checkedMutable(theDict).removeAll();
}
