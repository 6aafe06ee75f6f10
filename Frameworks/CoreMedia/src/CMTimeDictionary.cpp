#include <CoreMedia/CMTime.h>

#include "Platform/Support/Ref.h"

#include <cstdint>
#include <iterator>

const CFStringRef kCMTimeValueKey = CFSTR("value");
const CFStringRef kCMTimeScaleKey = CFSTR("timescale");
const CFStringRef kCMTimeEpochKey = CFSTR("epoch");
const CFStringRef kCMTimeFlagsKey = CFSTR("flags");

namespace {

cf::Ref<CFNumberRef> number(std::int64_t value)
{
    return cf::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
}

template <typename Field>
bool read(CFDictionaryRef dictionary, CFStringRef key, Field* field)
{
    const auto* value = static_cast<CFNumberRef>(CFDictionaryGetValue(dictionary, key));
    std::int64_t wide = 0;
    if (!value || CFGetTypeID(value) != CFNumberGetTypeID()) return false;
    if (!CFNumberGetValue(value, kCFNumberSInt64Type, &wide)) return false;
    *field = static_cast<Field>(wide);
    return *field == wide;
}

}  // namespace

CFDictionaryRef CMTimeCopyAsDictionary(CMTime time, CFAllocatorRef allocator)
{
    const void* keys[] = {kCMTimeValueKey, kCMTimeScaleKey, kCMTimeEpochKey, kCMTimeFlagsKey};
    const cf::Ref<CFNumberRef> numbers[] = {number(time.value), number(time.timescale), number(time.epoch),
                                            number(time.flags)};
    const void* values[std::size(keys)] = {};
    for (std::size_t i = 0; i < std::size(keys); ++i) {
        if (!numbers[i]) return nullptr;
        values[i] = numbers[i].get();
    }
    return CFDictionaryCreate(allocator, keys, values, std::size(keys), &kCFTypeDictionaryKeyCallBacks,
                              &kCFTypeDictionaryValueCallBacks);
}

CMTime CMTimeMakeFromDictionary(CFDictionaryRef dictionaryRepresentation)
{
    CMTime time = kCMTimeInvalid;
    const bool isComplete = dictionaryRepresentation &&
                            read(dictionaryRepresentation, kCMTimeValueKey, &time.value) &&
                            read(dictionaryRepresentation, kCMTimeScaleKey, &time.timescale) &&
                            read(dictionaryRepresentation, kCMTimeEpochKey, &time.epoch) &&
                            read(dictionaryRepresentation, kCMTimeFlagsKey, &time.flags);
    return isComplete ? time : kCMTimeInvalid;
}
