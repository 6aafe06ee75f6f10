#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <initializer_list>
#include <type_traits>

#include "Platform/Support/Ref.h"

namespace pavo::test {

inline cf::Ref<CFNumberRef> makeNumber(std::int64_t value)
{
    return cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
}

inline cf::Ref<CFNumberRef> makeNumber(double value)
{
    return cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &value));
}

inline cf::Ref<CFNumberRef> makeNumber(int value)
{
    return makeNumber(std::int64_t{value});
}

// The key and the value of a dictionary's entry; a number stands for its object.
struct Property {
    template <typename Number,
              typename = std::enable_if_t<std::is_arithmetic_v<Number> || std::is_enum_v<Number>>>
    Property(CFStringRef ownKey, Number number)
        : key(ownKey),
          value(cf::retain<CFTypeRef>(makeNumber(+number).get()))
    {}
    Property(CFStringRef ownKey, CFTypeRef object) : key(ownKey), value(cf::retain(object)) {}

    CFStringRef key;
    cf::Ref<CFTypeRef> value;
};

// Of several values for one key the last counts, so that a test can change one of many.
inline cf::Ref<CFMutableDictionaryRef> makeDictionary(std::initializer_list<Property> properties)
{
    auto dictionary = cf::adopt(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    for (const auto& property : properties)
        CFDictionarySetValue(dictionary.get(), property.key, property.value.get());
    return dictionary;
}

inline void setProperty(const cf::Ref<CFMutableDictionaryRef>& dictionary, const Property& property)
{
    CFDictionarySetValue(dictionary.get(), property.key, property.value.get());
}

inline cf::Ref<CFArrayRef> makeArray(std::initializer_list<CFTypeRef> values)
{
    return cf::adopt(CFArrayCreate(kCFAllocatorDefault, const_cast<const void**>(values.begin()),
                                   static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks));
}

}  // namespace pavo::test
