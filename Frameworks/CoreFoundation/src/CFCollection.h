#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFString.h>

#include <cstdio>
#include <string>

// What arrays and dictionaries do with their values through the callbacks that they were made with.
namespace cf::runtime {

inline const void* retainValue(CFAllocatorRef, const void* value)
{
    return CFRetain(value);
}
inline void releaseValue(CFAllocatorRef, const void* value)
{
    CFRelease(value);
}

template <typename CallBacks>
const void* keep(const CallBacks& callBacks, const void* value)
{
    return callBacks.retain ? callBacks.retain(kCFAllocatorDefault, value) : value;
}

template <typename CallBacks>
void drop(const CallBacks& callBacks, const void* value)
{
    if (callBacks.release) callBacks.release(kCFAllocatorDefault, value);
}

template <typename CallBacks>
bool areEqual(const CallBacks& callBacks, const void* left, const void* right)
{
    return left == right || (callBacks.equal && callBacks.equal(left, right));
}

inline CFStringRef createString(const std::string& utf8)
{
    return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(utf8.data()),
                                   static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false);
}

// The text of a value: its address where the collection knows no better.
template <typename CallBacks>
std::string description(const CallBacks& callBacks, const void* value)
{
    const CFStringRef string = callBacks.copyDescription ? callBacks.copyDescription(value) : nullptr;
    if (!string) {
        char address[32];
        std::snprintf(address, sizeof address, "%p", value);
        return address;
    }
    const auto capacity =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    std::string text(static_cast<std::size_t>(capacity), '\0');
    CFStringGetCString(string, text.data(), capacity, kCFStringEncodingUTF8);
    CFRelease(string);
    text.resize(text.find('\0'));
    return text;
}

}  // namespace cf::runtime
