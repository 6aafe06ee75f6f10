#include <CoreFoundation/CFObject.h>
#include <CoreFoundation/CFString.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Platform/Support/Fatal.h"

namespace {

// How long the UTF-8 sequence is that a byte begins; 0 where none begins with it.
std::size_t sequenceLength(unsigned char lead)
{
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return 2;  // C0 and C1 would spell ASCII in two bytes
    if (lead >= 0xE0 && lead <= 0xEF) return 3;
    if (lead >= 0xF0 && lead <= 0xF4) return 4;
    return 0;
}

// What the second byte may be: some leads allow less than 80…BF, or there would be longer spellings of one
// character, surrogates, and characters past U+10FFFF.
bool isSecondByte(unsigned char lead, unsigned char byte)
{
    const unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    return byte >= low && byte <= high;
}

// The length in UTF-16 code units, or nothing where the bytes are not UTF-8.
std::optional<CFIndex> utf16Length(std::string_view bytes)
{
    CFIndex units = 0;
    for (std::size_t i = 0; i < bytes.size();) {
        const auto at = [&bytes, i](std::size_t k) { return static_cast<unsigned char>(bytes[i + k]); };
        const auto length = sequenceLength(at(0));
        if (length == 0 || length > bytes.size() - i) return std::nullopt;
        if (length > 1 && !isSecondByte(at(0), at(1))) return std::nullopt;
        for (std::size_t k = 2; k < length; ++k)
            if ((at(k) & 0xC0) != 0x80) return std::nullopt;
        units += length == 4 ? 2 : 1;
        i += length;
    }
    return units;
}

bool isAscii(std::string_view bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](unsigned char c) { return c < 0x80; });
}

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

}  // namespace

struct __CFString : cf::runtime::Object {
    __CFString(std::string_view text, CFIndex length, bool isImmortal)
        : Object(classInfo(), isImmortal),
          utf8(text),
          utf16Length(length)
    {}
    static const cf::runtime::Class& classInfo();

    const std::string utf8;
    const CFIndex utf16Length;
};

namespace {

const __CFString* asString(const cf::runtime::Object* object)
{
    return static_cast<const __CFString*>(object);
}

bool areEqual(const cf::runtime::Object* first, const cf::runtime::Object* second)
{
    return asString(first)->utf8 == asString(second)->utf8;
}

CFHashCode hash(const cf::runtime::Object* object)
{
    return std::hash<std::string_view>()(asString(object)->utf8);
}

CFStringRef copyDescription(const cf::runtime::Object* object)
{
    return static_cast<CFStringRef>(CFRetain(object));
}

bool canShow(CFStringRef string, CFStringEncoding encoding)
{
    return encoding == kCFStringEncodingUTF8 || (encoding == kCFStringEncodingASCII && isAscii(string->utf8));
}

CFStringRef createString(std::string_view bytes, CFStringEncoding encoding)
{
    if (encoding != kCFStringEncodingUTF8 && encoding != kCFStringEncodingASCII) return nullptr;
    if (encoding == kCFStringEncodingASCII && !isAscii(bytes)) return nullptr;
    const auto length = utf16Length(bytes);
    return length ? cf::runtime::create<__CFString>(bytes, *length, false) : nullptr;
}

// Every constant string of the process. Never destroyed: constants are used until the very end.
struct ConstantStrings {
    std::mutex mutex;
    // The keys lie in the strings.
    std::unordered_map<std::string_view, std::unique_ptr<const __CFString>> strings;
};

}  // namespace

const cf::runtime::Class& __CFString::classInfo()
{
    static constinit const cf::runtime::Class info{"CFString", cf::runtime::destroy<__CFString>, areEqual,
                                                   hash, copyDescription};
    return info;
}

CFStringRef __CFStringMakeConstantString(const char* cStr)
{
    static auto& constants = *new ConstantStrings;
    const std::string_view text(cStr);
    const std::lock_guard lock(constants.mutex);
    if (const auto found = constants.strings.find(text); found != constants.strings.end())
        return found->second.get();
    const auto length = utf16Length(text);
    pavo::require(length.has_value(), "CFSTR() called with a text that is not UTF-8");
    auto string = std::make_unique<const __CFString>(text, *length, true);
    const CFStringRef result = string.get();
    constants.strings.emplace(result->utf8, std::move(string));
    return result;
}

CFTypeID CFStringGetTypeID(void)
{
    return cf::runtime::typeID<__CFString>();
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* cStr, CFStringEncoding encoding)
{
    return cStr ? createString(cStr, encoding) : nullptr;
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex numBytes,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation)
{
    if (numBytes < 0 || (!bytes && numBytes > 0)) return nullptr;
    std::string_view text(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(numBytes));
    if (isExternalRepresentation && encoding == kCFStringEncodingUTF8 && text.starts_with(kByteOrderMark))
        text.remove_prefix(kByteOrderMark.size());
    return createString(text, encoding);
}

CFIndex CFStringGetLength(CFStringRef theString)
{
    return theString->utf16Length;
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding)
{
    if (encoding == kCFStringEncodingASCII) return length;
    // The characters that take four bytes are two code units long, so three bytes per unit are the most.
    if (encoding == kCFStringEncodingUTF8) return length * 3;
    return -1;
}

Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize, CFStringEncoding encoding)
{
    const auto size = theString->utf8.size() + 1;
    if (!buffer || bufferSize < 0 || static_cast<std::size_t>(bufferSize) < size) return false;
    if (!canShow(theString, encoding)) return false;
    std::memcpy(buffer, theString->utf8.c_str(), size);
    return true;
}

const char* CFStringGetCStringPtr(CFStringRef theString, CFStringEncoding encoding)
{
    if (!canShow(theString, encoding) || theString->utf8.find('\0') != std::string::npos) return nullptr;
    return theString->utf8.c_str();
}
