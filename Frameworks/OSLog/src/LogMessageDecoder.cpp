#include "LogMessageDecoder.h"

#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "LogItems.h"
#include "Platform/Support/Ref.h"

namespace pavo::oslog {

namespace {

constexpr const char* kMissing = "<decode: missing data>";
constexpr const char* kMismatch = "<decode: mismatch>";
constexpr const char* kPrivate = "<private>";

// No column or precision needs more, and a wrong one must not fill the memory with blanks.
constexpr int kMaxFieldWidth = 1024;

// One conversion of a format: %[{annotation}][flags][width][.precision][length]conversion.
struct Conversion {
    std::string flags;
    std::optional<int> width;
    std::optional<int> precision;
    std::string length;
    char specifier = '\0';
};

bool isSigned(char specifier)
{
    return specifier == 'd' || specifier == 'i';
}

// The bits of an integer item, which is 1, 2, 4 or 8 bytes long, widened as the conversion reads it.
std::optional<std::uint64_t> loadInteger(const Item& item, bool widensSign)
{
    switch (item.value.size()) {
    case 1:
        return widensSign ? static_cast<std::uint64_t>(item.load<std::int8_t>()) : item.load<std::uint8_t>();
    case 2:
        return widensSign ? static_cast<std::uint64_t>(item.load<std::int16_t>())
                          : item.load<std::uint16_t>();
    case 4:
        return widensSign ? static_cast<std::uint64_t>(item.load<std::int32_t>())
                          : item.load<std::uint32_t>();
    case 8:
        return item.load<std::uint64_t>();
    default:
        return std::nullopt;
    }
}

// What a length modifier makes of an argument that was passed as an int.
std::uint64_t narrowed(std::uint64_t value, const Conversion& conversion)
{
    const bool widensSign = isSigned(conversion.specifier);
    if (conversion.length == "hh") {
        return widensSign ? static_cast<std::uint64_t>(static_cast<std::int8_t>(value))
                          : static_cast<std::uint8_t>(value);
    }
    if (conversion.length == "h") {
        return widensSign ? static_cast<std::uint64_t>(static_cast<std::int16_t>(value))
                          : static_cast<std::uint16_t>(value);
    }
    return value;
}

// Prints one value with the conversion's flags, width and precision.
template <typename T>
std::string printed(const Conversion& conversion, const char* length, T value)
{
    std::string format = "%" + conversion.flags;
    if (conversion.width) format += std::to_string(*conversion.width);
    if (conversion.precision) format += "." + std::to_string(*conversion.precision);
    format += length;
    format += conversion.specifier;
    const int size = std::snprintf(nullptr, 0, format.c_str(), value);
    std::string text(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
    std::snprintf(text.data(), text.size() + 1, format.c_str(), value);
    return text;
}

std::string printedInteger(const Conversion& conversion, const Item& item)
{
    const auto value = loadInteger(item, isSigned(conversion.specifier));
    if (!value) return kMismatch;
    if (conversion.specifier == 'c') return printed(conversion, "", static_cast<int>(*value));
    if (conversion.specifier == 'p') return printed(conversion, "", reinterpret_cast<const void*>(*value));
    return printed(conversion, "ll", static_cast<unsigned long long>(narrowed(*value, conversion)));
}

std::string printedReal(const Conversion& conversion, const Item& item)
{
    switch (item.value.size()) {
    case sizeof(float):
        return printed(conversion, "", static_cast<double>(item.load<float>()));
    case sizeof(double):
        return printed(conversion, "", item.load<double>());
    case sizeof(long double):
        return printed(conversion, "L", item.load<long double>());
    default:
        return kMismatch;
    }
}

std::string padded(const Conversion& conversion, std::string text)
{
    const auto width = static_cast<std::size_t>(conversion.width.value_or(0));
    if (text.size() >= width) return text;
    const bool isLeft = conversion.flags.find('-') != std::string::npos;
    text.insert(isLeft ? text.size() : 0, width - text.size(), ' ');
    return text;
}

std::string printedString(const Conversion& conversion, const Item& item)
{
    if (item.value.size() != sizeof(const char*)) return kMismatch;
    const auto* const string = item.load<const char*>();
    if (!string) return padded(conversion, "(null)");
    // With a precision the string need not end with a NUL.
    const auto length = conversion.precision
                            ? strnlen(string, static_cast<std::size_t>(*conversion.precision))
                            : std::strlen(string);
    return padded(conversion, std::string(string, length));
}

std::string printedObject(const Item& item)
{
    if (item.value.size() != sizeof(CFTypeRef)) return kMismatch;
    const auto object = item.load<CFTypeRef>();
    if (!object) return "(null)";
    const auto description = cf::adopt(CFCopyDescription(object));
    if (!description) return kMissing;
    const auto capacity =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(description.get()), kCFStringEncodingUTF8) + 1;
    std::string text(static_cast<std::size_t>(capacity), '\0');
    CFStringGetCString(description.get(), text.data(), capacity, kCFStringEncodingUTF8);
    text.resize(std::strlen(text.c_str()));
    return text;
}

std::string printedError(int errorNumber)
{
    char text[256];
    return strerror_r(errorNumber, text, sizeof text);
}

// The kind of item that a conversion takes, or nothing for a conversion that is not known.
std::optional<ItemKind> kindFor(char specifier)
{
    if (specifier == '\0') return std::nullopt;
    if (std::strchr("diouxXcpfFeEgGaA", specifier)) return ItemKind::Scalar;
    if (specifier == 's') return ItemKind::CString;
    if (specifier == '@') return ItemKind::Object;
    if (specifier == 'm') return ItemKind::Errno;
    return std::nullopt;
}

std::string printedItem(const Conversion& conversion, ItemKind expected, const std::optional<Item>& item,
                        int errorNumber)
{
    if (!item) return kMissing;
    if (item->kind != expected) return kMismatch;
    if (!item->isShown()) return kPrivate;
    switch (expected) {
    case ItemKind::CString:
        return printedString(conversion, *item);
    case ItemKind::Object:
        return printedObject(*item);
    case ItemKind::Errno:
        return printedError(errorNumber);
    case ItemKind::Scalar:
    case ItemKind::Count:
        break;
    }
    return std::strchr("fFeEgGaA", conversion.specifier) ? printedReal(conversion, *item)
                                                         : printedInteger(conversion, *item);
}

// Reads one format from left to right and takes the items in the order in which it asks for them.
class Decoder {
public:
    Decoder(std::string_view format, std::span<const std::uint8_t> buffer, int errorNumber)
        : format_(format),
          items_(buffer),
          errorNumber_(errorNumber)
    {}

    std::string run()
    {
        std::string text;
        while (position_ < format_.size()) {
            const auto percent = std::min(format_.find('%', position_), format_.size());
            text += format_.substr(position_, percent - position_);
            position_ = percent;
            if (position_ < format_.size()) text += conversionText();
        }
        return text;
    }

private:
    char current() const { return position_ < format_.size() ? format_[position_] : '\0'; }

    std::string takeWhile(const char* characters)
    {
        const auto end = std::min(format_.find_first_not_of(characters, position_), format_.size());
        const auto begin = std::exchange(position_, end);
        return std::string(format_.substr(begin, end - begin));
    }

    // A width or precision that is passed as an argument comes as an item of its own.
    std::optional<int> itemNumber()
    {
        const auto item = items_.next();
        if (!item || (item->kind != ItemKind::Scalar && item->kind != ItemKind::Count)) return std::nullopt;
        if (item->value.size() != sizeof(int)) return std::nullopt;
        return std::clamp(item->load<int>(), -kMaxFieldWidth, kMaxFieldWidth);
    }

    std::optional<int> number()
    {
        if (current() == '*') {
            ++position_;
            return itemNumber();
        }
        const auto digits = takeWhile("0123456789");
        if (digits.empty()) return std::nullopt;
        return digits.size() > 4 ? kMaxFieldWidth : std::min(std::atoi(digits.c_str()), kMaxFieldWidth);
    }

    Conversion conversion()
    {
        Conversion result;
        if (current() == '{') position_ = std::min(format_.find('}', position_), format_.size() - 1) + 1;
        result.flags = takeWhile("-+ #0'");
        result.width = number();
        if (result.width && *result.width < 0) {
            result.flags += '-';
            result.width = -*result.width;
        }
        if (current() == '.') {
            ++position_;
            result.precision = number().value_or(0);
            if (*result.precision < 0) result.precision.reset();
        }
        result.length = takeWhile("hljztqL");
        result.specifier = current();
        if (position_ < format_.size()) ++position_;
        // The compiler passes the constant precision of a string as a count, as it does one from an argument.
        if (const auto item = items_.peek(); result.specifier == 's' && item && item->kind == ItemKind::Count)
            if (const auto count = itemNumber(); count && *count >= 0) result.precision = count;
        return result;
    }

    std::string conversionText()
    {
        const auto begin = position_++;
        if (current() == '%') {
            ++position_;
            return "%";
        }
        const auto wanted = conversion();
        const auto kind = kindFor(wanted.specifier);
        if (!kind) return std::string(format_.substr(begin, position_ - begin));
        return printedItem(wanted, *kind, items_.next(), errorNumber_);
    }

    const std::string_view format_;
    Items items_;
    const int errorNumber_;
    std::size_t position_ = 0;
};

}  // namespace

std::string decodeMessage(const char* format, std::span<const std::uint8_t> buffer, int errorNumber)
{
    return format ? Decoder(format, buffer, errorNumber).run() : std::string();
}

}  // namespace pavo::oslog
