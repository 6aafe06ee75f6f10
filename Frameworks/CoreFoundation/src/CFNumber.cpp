#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFObject.h>
#include <CoreFoundation/CFString.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>

struct __CFBoolean : cf::runtime::Object {
    constexpr explicit __CFBoolean(bool isTrue);
    static const cf::runtime::Class& classInfo();

    const bool value;
};

struct __CFNumber : cf::runtime::Object {
    __CFNumber(CFNumberType fixedType, SInt64 value)
        : Object(classInfo()),
          type(fixedType),
          integer(value),
          real(static_cast<double>(value))
    {}
    __CFNumber(CFNumberType fixedType, double value)
        : Object(classInfo()),
          type(fixedType),
          integer(0),
          real(value)
    {}
    static const cf::runtime::Class& classInfo();

    bool isFloat() const { return type == kCFNumberFloat32Type || type == kCFNumberFloat64Type; }

    const CFNumberType type;
    const SInt64 integer;  // 0 for a floating-point number
    const double real;
};

namespace {

using cf::runtime::Object;

CFStringRef createText(const char* text)
{
    return CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8);
}

CFStringRef copyBooleanDescription(const Object* object)
{
    return createText(static_cast<const __CFBoolean*>(object)->value ? "true" : "false");
}

constinit const cf::runtime::Class booleanClass{"CFBoolean", cf::runtime::destroy<__CFBoolean>, nullptr,
                                                nullptr, copyBooleanDescription};

const __CFNumber& asNumber(const Object* object)
{
    return *static_cast<const __CFNumber*>(object);
}

// 2 to the power of 63, the first double that no SInt64 reaches.
constexpr double kIntegerEnd = 9223372036854775808.0;

bool fitsInteger(double value)
{
    return value >= -kIntegerEnd && value < kIntegerEnd;
}

bool isWholeInteger(double value)
{
    return fitsInteger(value) && std::trunc(value) == value;
}

bool areEqual(const Object* first, const Object* second)
{
    const auto& a = asNumber(first);
    const auto& b = asNumber(second);
    if (a.isFloat() && b.isFloat()) return a.real == b.real;
    if (!a.isFloat() && !b.isFloat()) return a.integer == b.integer;
    // As doubles, different large integers would be equal to the same number.
    const auto& real = a.isFloat() ? a : b;
    const auto& integer = a.isFloat() ? b : a;
    return isWholeInteger(real.real) && static_cast<SInt64>(real.real) == integer.integer;
}

CFHashCode hash(const Object* object)
{
    const auto& number = asNumber(object);
    if (!number.isFloat()) return static_cast<CFHashCode>(number.integer);
    // Equal numbers have equal hashes, whatever their types.
    if (isWholeInteger(number.real)) return static_cast<CFHashCode>(static_cast<SInt64>(number.real));
    return std::hash<double>()(number.real);
}

CFStringRef copyDescription(const Object* object)
{
    const auto& number = asNumber(object);
    char text[64];
    if (!number.isFloat()) {
        std::snprintf(text, sizeof text, "%lld", static_cast<long long>(number.integer));
        return createText(text);
    }
    // 15 digits show what people wrote; a few values need up to 17 to be told from their neighbours.
    for (int digits = 15; digits <= 17; ++digits) {
        std::snprintf(text, sizeof text, "%.*g", digits, number.real);
        if (std::strtod(text, nullptr) == number.real) break;
    }
    return createText(text);
}

// The type with a fixed width that a type stands for, or 0 for no type.
CFNumberType fixedType(CFNumberType type)
{
    switch (type) {
    case kCFNumberSInt8Type:
    case kCFNumberCharType:
        return kCFNumberSInt8Type;
    case kCFNumberSInt16Type:
    case kCFNumberShortType:
        return kCFNumberSInt16Type;
    case kCFNumberSInt32Type:
    case kCFNumberIntType:
        return kCFNumberSInt32Type;
    case kCFNumberSInt64Type:
    case kCFNumberLongType:
    case kCFNumberLongLongType:
    case kCFNumberCFIndexType:
    case kCFNumberNSIntegerType:
        return kCFNumberSInt64Type;
    case kCFNumberFloat32Type:
    case kCFNumberFloatType:
        return kCFNumberFloat32Type;
    case kCFNumberFloat64Type:
    case kCFNumberDoubleType:
    case kCFNumberCGFloatType:
        return kCFNumberFloat64Type;
    }
    return CFNumberType{};
}

template <typename T>
T load(const void* from)
{
    T value{};
    std::memcpy(&value, from, sizeof value);
    return value;
}

// Stores the value as a T: the nearest one where it does not fit. Tells whether nothing was lost.
template <typename T>
bool store(const __CFNumber& number, void* to)
{
    using Limits = std::numeric_limits<T>;
    T result{};
    bool isExact = false;
    if constexpr (Limits::is_integer) {
        if (number.isFloat()) {
            const double whole = std::isnan(number.real) ? 0 : std::trunc(number.real);
            const bool fits =
                whole >= static_cast<double>(Limits::min()) && whole < std::ldexp(1.0, Limits::digits);
            result = fits ? static_cast<T>(whole) : whole < 0 ? Limits::min() : Limits::max();
            isExact = fits && whole == number.real;
        } else {
            isExact = number.integer >= Limits::min() && number.integer <= Limits::max();
            result = isExact              ? static_cast<T>(number.integer)
                     : number.integer < 0 ? Limits::min()
                                          : Limits::max();
        }
    } else {
        result = static_cast<T>(number.real);
        isExact = number.isFloat() ? static_cast<double>(result) == number.real || std::isnan(number.real)
                                   : isWholeInteger(result) && static_cast<SInt64>(result) == number.integer;
    }
    std::memcpy(to, &result, sizeof result);
    return isExact;
}

}  // namespace

constexpr __CFBoolean::__CFBoolean(bool isTrue) : Object(booleanClass, true), value(isTrue) {}

namespace {

constinit const __CFBoolean trueObject(true);
constinit const __CFBoolean falseObject(false);

}  // namespace

const CFBooleanRef kCFBooleanTrue = &trueObject;
const CFBooleanRef kCFBooleanFalse = &falseObject;

const cf::runtime::Class& __CFBoolean::classInfo()
{
    return booleanClass;
}

const cf::runtime::Class& __CFNumber::classInfo()
{
    static constinit const cf::runtime::Class info{"CFNumber", cf::runtime::destroy<__CFNumber>, areEqual,
                                                   hash, copyDescription};
    return info;
}

CFTypeID CFBooleanGetTypeID(void)
{
    return cf::runtime::typeID<__CFBoolean>();
}

Boolean CFBooleanGetValue(CFBooleanRef boolean)
{
    return boolean->value;
}

CFTypeID CFNumberGetTypeID(void)
{
    return cf::runtime::typeID<__CFNumber>();
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType theType, const void* valuePtr)
{
    if (!valuePtr) return nullptr;
    const auto type = fixedType(theType);
    switch (type) {
    case kCFNumberSInt8Type:
        return cf::runtime::create<__CFNumber>(type, static_cast<SInt64>(load<int8_t>(valuePtr)));
    case kCFNumberSInt16Type:
        return cf::runtime::create<__CFNumber>(type, static_cast<SInt64>(load<int16_t>(valuePtr)));
    case kCFNumberSInt32Type:
        return cf::runtime::create<__CFNumber>(type, static_cast<SInt64>(load<int32_t>(valuePtr)));
    case kCFNumberSInt64Type:
        return cf::runtime::create<__CFNumber>(type, load<SInt64>(valuePtr));
    case kCFNumberFloat32Type:
        return cf::runtime::create<__CFNumber>(type, static_cast<double>(load<float>(valuePtr)));
    case kCFNumberFloat64Type:
        return cf::runtime::create<__CFNumber>(type, load<double>(valuePtr));
    default:
        return nullptr;
    }
}

CFNumberType CFNumberGetType(CFNumberRef number)
{
    return number->type;
}

Boolean CFNumberIsFloatType(CFNumberRef number)
{
    return number->isFloat();
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr)
{
    switch (fixedType(theType)) {
    case kCFNumberSInt8Type:
        return store<int8_t>(*number, valuePtr);
    case kCFNumberSInt16Type:
        return store<int16_t>(*number, valuePtr);
    case kCFNumberSInt32Type:
        return store<int32_t>(*number, valuePtr);
    case kCFNumberSInt64Type:
        return store<SInt64>(*number, valuePtr);
    case kCFNumberFloat32Type:
        return store<float>(*number, valuePtr);
    case kCFNumberFloat64Type:
        return store<double>(*number, valuePtr);
    default:
        return false;
    }
}
