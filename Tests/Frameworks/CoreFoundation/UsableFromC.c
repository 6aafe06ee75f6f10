// What C++ code cannot show: that the declarations are C.
#include <CoreFoundation/CoreFoundation.h>

CFIndex countFromC(void);

CFIndex countFromC(void)
{
    const void* keys[] = {CFSTR("key")};
    const int number = 3;
    const void* values[] = {CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &number)};
    CFDictionaryRef dictionary =
        CFDictionaryCreate(kCFAllocatorDefault, keys, values, 1, &kCFTypeDictionaryKeyCallBacks,
                           &kCFTypeDictionaryValueCallBacks);
    CFArrayRef array = CFArrayCreate(kCFAllocatorDefault, values, 1, &kCFTypeArrayCallBacks);
    const CFIndex count = CFDictionaryGetCount(dictionary) + CFArrayGetCount(array);
    CFRelease(array);
    CFRelease(dictionary);
    CFRelease(values[0]);
    return count;
}
